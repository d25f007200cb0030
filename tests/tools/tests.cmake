# Checks of the build-time code generators' own logic.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
add_test(NAME tools.gen_models
         COMMAND ${Python3_EXECUTABLE} -m unittest discover -s ${CMAKE_SOURCE_DIR}/tools/tests -p "test_gen_models.py" -v)
set_tests_properties(tools.gen_models PROPERTIES LABELS tools TIMEOUT 60
                     ENVIRONMENT "OCPP_SOURCE_DIR=${CMAKE_SOURCE_DIR}")

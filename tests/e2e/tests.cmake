# End-to-end suite (node, ocpp-rpc, openssl) against this build's station simulator.
# Off by default: scripts/test.d/20-e2e.sh runs it once against build/. Turn it on to
# run it against another build, e.g. the sanitizer one: ctest -L e2e.
option(OCPP_E2E_TESTS "Register the end-to-end suite with CTest" OFF)
if(OCPP_E2E_TESTS AND TARGET ocpp_station_sim)
  find_program(NODE_EXECUTABLE node REQUIRED)
  file(GLOB OCPP_E2E_FILES CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/*.test.mjs)
  add_test(NAME e2e COMMAND ${NODE_EXECUTABLE} --test --test-reporter=spec --test-concurrency=2 ${OCPP_E2E_FILES}
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR})
  set_tests_properties(e2e PROPERTIES LABELS e2e TIMEOUT 400
    ENVIRONMENT "OCPP_STATION_SIM=$<TARGET_FILE:ocpp_station_sim>")
endif()

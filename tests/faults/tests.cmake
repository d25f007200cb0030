# Faults from outside the software: a writer killed mid-write stands for a power cut.
add_executable(store_writer ${CMAKE_CURRENT_LIST_DIR}/StoreWriter.cpp)
target_link_libraries(store_writer PRIVATE ocppprotocol_static)

add_executable(ocpp_fault_tests ${CMAKE_CURRENT_LIST_DIR}/PowerCutTest.cpp)
target_link_libraries(ocpp_fault_tests PRIVATE ocpp_test_support GTest::gtest_main)
target_compile_definitions(ocpp_fault_tests PRIVATE OCPP_STORE_WRITER="$<TARGET_FILE:store_writer>")
add_dependencies(ocpp_fault_tests store_writer)
add_test(NAME PowerCut COMMAND ocpp_fault_tests)
set_tests_properties(PowerCut PROPERTIES LABELS fault TIMEOUT 120)

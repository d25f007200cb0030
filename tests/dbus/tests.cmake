# Modules talking over a real session bus. The binary runs inside a private bus
# of its own (dbus-run-session), so it never touches the user's session.
find_program(OCPP_DBUS_RUN_SESSION dbus-run-session REQUIRED)

add_executable(ocpp_dbus_tests ${CMAKE_CURRENT_LIST_DIR}/DbusBusTest.cpp)
target_link_libraries(ocpp_dbus_tests PRIVATE ocpp_test_support GTest::gtest_main)

add_test(NAME DbusBus COMMAND ${OCPP_DBUS_RUN_SESSION} -- $<TARGET_FILE:ocpp_dbus_tests>)
# libdbus leaves no leak reports of its own, so the sanitizer build needs no suppressions.
set_tests_properties(DbusBus PROPERTIES LABELS dbus TIMEOUT 120)

# The C interface's header must stay usable from C.
add_library(ocpp_libdbus_c_header OBJECT ${CMAKE_CURRENT_LIST_DIR}/HeaderIsC.c)
target_include_directories(ocpp_libdbus_c_header PRIVATE ${CMAKE_SOURCE_DIR}/include)
target_compile_options(ocpp_libdbus_c_header PRIVATE -Werror)
add_dependencies(ocpp_dbus_tests ocpp_libdbus_c_header)

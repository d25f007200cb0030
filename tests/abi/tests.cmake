# The shared library exports exactly the host interface.
find_package(Python3 COMPONENTS Interpreter REQUIRED)
add_test(NAME abi.exports
  COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_LIST_DIR}/check_exports.py
          $<TARGET_FILE:ocppprotocol> ${CMAKE_SOURCE_DIR}/include)
set_tests_properties(abi.exports PROPERTIES LABELS abi)

# Plug-ins the unit tests load: a working one, and a library without the factory.
add_library(ocpp_test_plugin MODULE ${CMAKE_CURRENT_LIST_DIR}/TestPlugin.cpp)
target_include_directories(ocpp_test_plugin PRIVATE ${CMAKE_SOURCE_DIR}/include)

# The pricing plug-in reads the library's own record layout.
add_library(ocpp_test_price_plugin MODULE ${CMAKE_CURRENT_LIST_DIR}/PricePlugin.cpp)
target_include_directories(ocpp_test_price_plugin PRIVATE ${CMAKE_SOURCE_DIR}/include ${CMAKE_SOURCE_DIR}/src)

add_library(ocpp_test_nofactory MODULE ${CMAKE_CURRENT_LIST_DIR}/NoFactoryPlugin.cpp)

add_dependencies(ocpp_unit_tests ocpp_test_plugin ocpp_test_nofactory ocpp_test_price_plugin)
target_compile_definitions(ocpp_unit_tests PRIVATE
  OCPP_TEST_PLUGIN_PATH="$<TARGET_FILE:ocpp_test_plugin>"
  OCPP_TEST_NOFACTORY_PATH="$<TARGET_FILE:ocpp_test_nofactory>"
  OCPP_TEST_PRICE_PLUGIN_PATH="$<TARGET_FILE:ocpp_test_price_plugin>")

# Property test of the generated message records: every schema's payloads are
# read and written back by the C++ records and checked against the schema.
add_executable(model_roundtrip ${CMAKE_CURRENT_LIST_DIR}/ModelRoundTrip.cpp)
target_link_libraries(model_roundtrip PRIVATE ocppprotocol_static)

find_program(OCPP_NODE node)
if(OCPP_NODE)
  add_test(NAME model.roundtrip
           COMMAND ${OCPP_NODE} --test ${CMAKE_CURRENT_LIST_DIR}/property.test.mjs)
  set_tests_properties(model.roundtrip PROPERTIES
    LABELS model TIMEOUT 300
    ENVIRONMENT "MODEL_ROUNDTRIP=$<TARGET_FILE:model_roundtrip>;OCPP_SOURCE_DIR=${CMAKE_SOURCE_DIR}")
else()
  message(WARNING "node not found: the message model property test is not registered")
endif()

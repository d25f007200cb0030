# Frames written by the station's request and answer builders, validated
# against the official 2.0.1 schemas.
add_executable(builder_frames ${CMAKE_CURRENT_LIST_DIR}/BuilderFrames.cpp)
target_link_libraries(builder_frames PRIVATE ocppprotocol_static)

find_program(OCPP_NODE node)
if(OCPP_NODE)
  add_test(NAME builders.schema
           COMMAND ${OCPP_NODE} --test ${CMAKE_CURRENT_LIST_DIR}/builders.test.mjs)
  set_tests_properties(builders.schema PROPERTIES
    LABELS model TIMEOUT 120
    ENVIRONMENT "BUILDER_FRAMES=$<TARGET_FILE:builder_frames>;OCPP_SOURCE_DIR=${CMAKE_SOURCE_DIR}")
else()
  message(WARNING "node not found: the builder schema test is not registered")
endif()

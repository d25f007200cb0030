# The OCPP 2.0.1 message records are generated from the published JSON schemas
# (npm package ocpp-rpc, pinned in package-lock.json) at build time.
find_package(Python3 REQUIRED COMPONENTS Interpreter)

set(OCPP_MODEL_SCHEMA ${CMAKE_SOURCE_DIR}/node_modules/ocpp-rpc/lib/schemas/ocpp2_0_1.json)
if(NOT EXISTS ${OCPP_MODEL_SCHEMA})
  message(FATAL_ERROR "Message model schemas not found at ${OCPP_MODEL_SCHEMA}.\n"
                      "Run `npm ci` in ${CMAKE_SOURCE_DIR} (scripts/test.sh does it) and configure again.")
endif()

set(OCPP_MODEL_PARTS 4)
set(OCPP_MODEL_DIR ${CMAKE_BINARY_DIR}/generated/models)
set(OCPP_MODEL_GENERATOR ${CMAKE_SOURCE_DIR}/tools/gen_models.py)
set(OCPP_MODEL_GENERATOR_PARTS ${CMAKE_SOURCE_DIR}/tools/gen_schema_checks.py ${CMAKE_SOURCE_DIR}/tools/schema_common.py)
set(OCPP_MODEL_SOURCES ${OCPP_MODEL_DIR}/ModelsEnums.cpp ${OCPP_MODEL_DIR}/ModelSchemas.cpp)
math(EXPR _last "${OCPP_MODEL_PARTS} - 1")
foreach(i RANGE ${_last})
  list(APPEND OCPP_MODEL_SOURCES ${OCPP_MODEL_DIR}/ModelsPart${i}.cpp)
endforeach()
set(OCPP_MODEL_OUTPUTS ${OCPP_MODEL_DIR}/Models.h ${OCPP_MODEL_DIR}/ModelTable.inc ${OCPP_MODEL_SOURCES})

add_custom_command(
  OUTPUT ${OCPP_MODEL_OUTPUTS}
  COMMAND ${Python3_EXECUTABLE} ${OCPP_MODEL_GENERATOR} ${OCPP_MODEL_SCHEMA} ${OCPP_MODEL_DIR}
          --parts ${OCPP_MODEL_PARTS}
  # The generator leaves unchanged files alone; touching keeps the outputs newer than their inputs.
  COMMAND ${CMAKE_COMMAND} -E touch ${OCPP_MODEL_OUTPUTS}
  DEPENDS ${OCPP_MODEL_GENERATOR} ${OCPP_MODEL_GENERATOR_PARTS} ${OCPP_MODEL_SCHEMA}
  COMMENT "Generating the OCPP 2.0.1 message records"
  VERBATIM)
add_custom_target(ocpp_models_gen DEPENDS ${OCPP_MODEL_OUTPUTS})

list(APPEND OCPP_GENERATED_SOURCES ${OCPP_MODEL_SOURCES})
list(APPEND OCPP_GENERATED_TARGETS ocpp_models_gen)

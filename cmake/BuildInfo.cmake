# The version entry reports the source revision and the time of the build.
find_package(Git QUIET)
set(OCPP_GIT_REVISION "unknown")
if(GIT_FOUND AND EXISTS ${CMAKE_SOURCE_DIR}/.git)
  execute_process(COMMAND ${GIT_EXECUTABLE} describe --always --dirty --tags
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR} OUTPUT_VARIABLE OCPP_GIT_REVISION
    OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  execute_process(COMMAND ${GIT_EXECUTABLE} rev-parse --abbrev-ref HEAD
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR} OUTPUT_VARIABLE OCPP_GIT_BRANCH
    OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(NOT OCPP_GIT_REVISION)
  set(OCPP_GIT_REVISION "unknown")
endif()
if(NOT OCPP_GIT_BRANCH)
  set(OCPP_GIT_BRANCH "main")
endif()
string(TIMESTAMP OCPP_BUILD_TIME "%Y-%m-%dT%H:%M:%SZ" UTC)
configure_file(${CMAKE_SOURCE_DIR}/cmake/BuildInfo.h.in ${CMAKE_BINARY_DIR}/generated/BuildInfo.h @ONLY)

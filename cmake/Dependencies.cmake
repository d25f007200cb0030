find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
pkg_check_modules(LWS REQUIRED IMPORTED_TARGET libwebsockets)
pkg_check_modules(OPENSSL REQUIRED IMPORTED_TARGET openssl)
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET jsoncpp)
pkg_check_modules(SQLITE3 REQUIRED IMPORTED_TARGET sqlite3)
pkg_check_modules(DBUS REQUIRED IMPORTED_TARGET dbus-1)
pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)
pkg_check_modules(ZLIB REQUIRED IMPORTED_TARGET zlib)
find_path(RAPIDJSON_INCLUDE_DIR rapidjson/document.h REQUIRED)

add_library(ocpp_deps INTERFACE)
target_include_directories(ocpp_deps INTERFACE ${RAPIDJSON_INCLUDE_DIR})
target_link_libraries(ocpp_deps INTERFACE
  PkgConfig::LWS PkgConfig::OPENSSL PkgConfig::JSONCPP PkgConfig::SQLITE3
  PkgConfig::DBUS PkgConfig::UUID PkgConfig::ZLIB Threads::Threads ${CMAKE_DL_LIBS})

# Generated sources (the message model) register themselves here.
set(OCPP_GENERATED_SOURCES "")
set(OCPP_GENERATED_TARGETS "")
file(GLOB OCPP_GENERATOR_MODULES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/cmake/gen/*.cmake)
foreach(m ${OCPP_GENERATOR_MODULES})
  include(${m})
endforeach()

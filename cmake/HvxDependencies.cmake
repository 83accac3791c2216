# Everything comes from Debian's packages (see scripts/install-deps).
find_package(fmt 9 REQUIRED)
find_package(Threads REQUIRED)
find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
find_package(nlohmann_json 3.11 REQUIRED)
find_package(antlr4-runtime REQUIRED)
if(NOT TARGET antlr4_shared)
  message(FATAL_ERROR "antlr4 runtime target missing")
endif()
# Debian's imported target carries no include folder; generated code needs it.
set_property(TARGET antlr4_shared APPEND PROPERTY INTERFACE_INCLUDE_DIRECTORIES ${ANTLR4_INCLUDE_DIR})
find_program(ANTLR4_TOOL antlr4 REQUIRED)
find_package(Java COMPONENTS Runtime REQUIRED)
# CLI11, header-only: the command lines of halvex and halvex-sim.
find_package(CLI11 CONFIG REQUIRED)

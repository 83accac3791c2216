# Everything comes from Debian's packages (see scripts/install-deps).
find_package(fmt 9 REQUIRED)
find_package(Threads REQUIRED)
find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
find_package(nlohmann_json 3.11 REQUIRED)
find_package(antlr4-runtime REQUIRED)
if(NOT TARGET antlr4_shared)
  message(FATAL_ERROR "antlr4 runtime target missing")
endif()
# Debian's imported target carries no include folder of its own.
target_include_directories(antlr4_shared INTERFACE ${ANTLR4_INCLUDE_DIR})
find_program(ANTLR4_TOOL antlr4 REQUIRED)
find_package(Java COMPONENTS Runtime REQUIRED)

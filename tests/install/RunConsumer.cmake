file(REMOVE_RECURSE ${WORK_DIR})
# The prefix lies outside the build tree, as a user's would.
execute_process(COMMAND mktemp -d --tmpdir halvex-prefix-XXXXXX OUTPUT_VARIABLE PREFIX OUTPUT_STRIP_TRAILING_WHITESPACE
  RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "no temporary prefix")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX}
  RESULT_VARIABLE rc)
if(rc)
  file(REMOVE_RECURSE ${PREFIX})
  message(FATAL_ERROR "install failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -G Ninja
  -DCMAKE_PREFIX_PATH=${PREFIX} RESULT_VARIABLE rc)
if(rc)
  file(REMOVE_RECURSE ${PREFIX})
  message(FATAL_ERROR "configuring the consumer failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build RESULT_VARIABLE rc)
if(rc)
  file(REMOVE_RECURSE ${PREFIX})
  message(FATAL_ERROR "building the consumer failed")
endif()
# The consumer gets its own data folder below the work folder.
execute_process(COMMAND ${CMAKE_COMMAND} -E env
    HOME=${WORK_DIR}/home XDG_DATA_HOME=${WORK_DIR}/data
    ${WORK_DIR}/build/consumer
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
message("${out}${err}")
if(rc)
  file(REMOVE_RECURSE ${PREFIX})
  message(FATAL_ERROR "the consumer failed: ${rc}")
endif()
if(NOT out MATCHES "3 positions measured")
  message(FATAL_ERROR "the consumer did not report its three positions")
endif()
if(NOT EXISTS "${WORK_DIR}/data/Nerquil Labs/Halvex2/log.txt")
  message(FATAL_ERROR "no log file in the consumer's data folder")
endif()

# The installed host starts from its prefix and finds the installed library.
if(WITH_HOST)
  execute_process(COMMAND env -u LD_LIBRARY_PATH ${PREFIX}/bin/halvex --version
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(rc OR NOT out STREQUAL "halvex ${VERSION}\n")
    file(REMOVE_RECURSE ${PREFIX})
    message(FATAL_ERROR "the installed halvex did not start: ${rc} ${out}${err}")
  endif()
  execute_process(COMMAND ldd ${PREFIX}/bin/halvex OUTPUT_VARIABLE linked)
  string(REGEX MATCH "libHalvexAPI[^\n]*" library "${linked}")
  if(NOT library MATCHES "${PREFIX}/")
    file(REMOVE_RECURSE ${PREFIX})
    message(FATAL_ERROR "the installed halvex does not use the installed library: ${library}")
  endif()
  execute_process(COMMAND ${CMAKE_COMMAND} -E env HOME=${WORK_DIR}/home XDG_DATA_HOME=${WORK_DIR}/data
      ${PREFIX}/bin/halvex scan --cells 0,0:1,0 --sweep-ms 0 --quiet --out ${WORK_DIR}/short.hvxscan
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(rc OR NOT EXISTS ${WORK_DIR}/short.hvxscan)
    file(REMOVE_RECURSE ${PREFIX})
    message(FATAL_ERROR "the installed halvex could not scan: ${rc} ${out}${err}")
  endif()
endif()
file(REMOVE_RECURSE ${PREFIX})

file(REMOVE_RECURSE ${WORK_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix
  RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "install failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -G Ninja
  -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "configuring the consumer failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "building the consumer failed")
endif()
# The consumer gets its own data folder below the work folder.
execute_process(COMMAND ${CMAKE_COMMAND} -E env
    HOME=${WORK_DIR}/home XDG_DATA_HOME=${WORK_DIR}/data
    ${WORK_DIR}/build/consumer
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
message("${out}${err}")
if(rc)
  message(FATAL_ERROR "the consumer failed: ${rc}")
endif()
if(NOT out MATCHES "3 positions measured")
  message(FATAL_ERROR "the consumer did not report its three positions")
endif()
if(NOT EXISTS "${WORK_DIR}/data/Nerquil Labs/Halvex2/log.txt")
  message(FATAL_ERROR "no log file in the consumer's data folder")
endif()

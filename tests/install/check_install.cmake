# Installs the build into a scratch prefix, then configures, builds and runs a small
# project that finds the package the way a user's project would.
file(REMOVE_RECURSE ${WORK_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(rc)
  message(FATAL_ERROR "install failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/install/consumer
                        -B ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix
                RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "configuring the consumer failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "building the consumer failed")
endif()
# Both programs run with no help from the environment to find the libraries.
set(ENV{LD_LIBRARY_PATH} "")
execute_process(COMMAND ${WORK_DIR}/build/consumer RESULT_VARIABLE rc OUTPUT_VARIABLE out
                ERROR_VARIABLE out)
if(rc OR NOT out MATCHES "10")
  message(FATAL_ERROR "the consumer failed: ${out}")
endif()
execute_process(COMMAND ${WORK_DIR}/prefix/bin/lawcalc "X*X+1" --at 3 RESULT_VARIABLE rc
                OUTPUT_VARIABLE out ERROR_VARIABLE out)
if(rc OR NOT out MATCHES "at 3: 10")
  message(FATAL_ERROR "the installed lawcalc failed: ${out}")
endif()

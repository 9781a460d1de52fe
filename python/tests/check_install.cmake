# Installs the build into a scratch prefix and imports the package from it, with nothing
# in the environment to find the libraries: the module finds them through its RPATH.
file(REMOVE_RECURSE ${WORK_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(rc)
  message(FATAL_ERROR "install failed")
endif()
set(ENV{LD_LIBRARY_PATH} "")
set(ENV{PYTHONPATH} "${WORK_DIR}/${SITE_DIR}")
execute_process(COMMAND ${PYTHON} -c
  "import lawutil; assert lawutil.__file__.startswith('${WORK_DIR}'); print(lawutil.Law('X*X+1')(3.0))"
  WORKING_DIRECTORY ${WORK_DIR} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
if(rc OR NOT out MATCHES "10.0")
  message(FATAL_ERROR "the installed package failed: ${out}")
endif()

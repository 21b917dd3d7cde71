# Installs the build at BUILD_DIR into a temporary prefix, builds the host
# example against that install as a user would, and runs it.
# cmake -DBUILD_DIR=... -DSOURCE_DIR=... -DWORK_DIR=... [-DSANITIZE=...] -P check.cmake
function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(status)
    message(FATAL_ERROR "host example: ${what} failed (${status}):\n${output}")
  endif()
  message("${output}")
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
run("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix)
set(flags "")
if(SANITIZE)
  set(flags "-fsanitize=${SANITIZE}")
endif()
run("configure" ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix
    -DCMAKE_CXX_COMPILER=${CXX} "-DCMAKE_CXX_FLAGS=${flags}" "-DCMAKE_EXE_LINKER_FLAGS=${flags}")
run("build" ${CMAKE_COMMAND} --build ${WORK_DIR}/build)
file(MAKE_DIRECTORY ${WORK_DIR}/run)
run("run" ${WORK_DIR}/build/host ${WORK_DIR}/run)

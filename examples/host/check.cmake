# Installs the build at BUILD_DIR into a temporary prefix and uses it as
# people do: the installed zelutil runs its demo (finding the library through
# its run path, the sample data built in), and the host example builds
# against the package, asking for C++14 only (the package's usage requirement
# raises it to the C++17 its headers need), and runs.
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
if(EXISTS ${WORK_DIR}/prefix/bin/zelutil)
  run("installed zelutil demo" ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${WORK_DIR}/prefix/bin/zelutil demo
      ${WORK_DIR}/demo)
endif()
run("configure" ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix
    -DCMAKE_CXX_COMPILER=${CXX} "-DCMAKE_CXX_FLAGS=${flags}" "-DCMAKE_EXE_LINKER_FLAGS=${flags}")
run("build" ${CMAKE_COMMAND} --build ${WORK_DIR}/build)
file(MAKE_DIRECTORY ${WORK_DIR}/run)
run("run" ${WORK_DIR}/build/host ${WORK_DIR}/run)

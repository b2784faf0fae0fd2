# Installs into a fresh tree and builds a C host against it twice: with find_package and with pkg-config.
function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE failed OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(failed)
    message(FATAL_ERROR "${ARGV}\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

set(STAGE ${WORK}/stage)
file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${STAGE})

run(${CMAKE_COMMAND} -S ${HOST} -B ${WORK}/cmake -G ${GENERATOR} -DCMAKE_PREFIX_PATH=${STAGE} -DCMAKE_C_COMPILER=${COMPILER}
    -DWANTED_VERSION=${VERSION})
run(${CMAKE_COMMAND} --build ${WORK}/cmake)
run(${WORK}/cmake/host ${INI})

set(ENV{PKG_CONFIG_PATH} ${STAGE}/${LIBDIR}/pkgconfig)
run(pkg-config --exact-version=${VERSION} tessel)
run(pkg-config --cflags --libs tessel)
separate_arguments(flags UNIX_COMMAND "${output}")
run(${COMPILER} ${HOST}/host.c -o ${WORK}/host ${flags} -Wl,-rpath,${STAGE}/${LIBDIR})
run(${WORK}/host ${INI})

# The installed program finds the installed library.
run(${STAGE}/bin/tessel --version)
if(NOT output STREQUAL "tessel ${VERSION}\n")
  message(FATAL_ERROR "tessel --version: ${output}")
endif()

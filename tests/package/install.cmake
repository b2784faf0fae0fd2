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

# The example of the README, on a recording that the installed program makes.
file(READ ${README} text)
string(REGEX MATCH "```c\n([^`]*)```" ignored "${text}")
file(WRITE ${WORK}/example.c "${CMAKE_MATCH_1}")
run(${COMPILER} ${WORK}/example.c -o ${WORK}/example ${flags} -Wl,-rpath,${STAGE}/${LIBDIR})
run(${STAGE}/bin/tessel simulate ${WORK}/decay.tgx --duration 10ms)
run(${WORK}/example ${WORK}/decay.tgx ${INI})
if(NOT output MATCHES "channel 0: 0\n.*channel 1: [1-9][0-9]+\n.*channel 2: [1-9][0-9]+\n")
  message(FATAL_ERROR "the example of the README prints: ${output}")
endif()

# The installed program finds the installed library.
run(${STAGE}/bin/tessel --version)
if(NOT output STREQUAL "tessel ${VERSION}\n")
  message(FATAL_ERROR "tessel --version: ${output}")
endif()

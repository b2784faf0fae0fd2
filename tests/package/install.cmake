# Installs into a fresh tree and builds the host of docs/hosts.md against it twice: with find_package and with
# pkg-config. It counts a recording that the installed program makes.
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
file(READ ${DOCUMENT} text)
string(REGEX MATCH "```c\n([^`]*)```" ignored "${text}")
file(WRITE ${WORK}/host/host.c "${CMAKE_MATCH_1}")
file(WRITE ${WORK}/host/CMakeLists.txt "cmake_minimum_required(VERSION 3.25)
project(host LANGUAGES C)
find_package(Tessel ${VERSION} EXACT REQUIRED)
add_executable(host host.c)
target_link_libraries(host PRIVATE Tessel::tessel)\n")

run(${CMAKE_COMMAND} -S ${WORK}/host -B ${WORK}/cmake -G ${GENERATOR} -DCMAKE_PREFIX_PATH=${STAGE}
    -DCMAKE_C_COMPILER=${COMPILER})
run(${CMAKE_COMMAND} --build ${WORK}/cmake)

set(ENV{PKG_CONFIG_PATH} ${STAGE}/${LIBDIR}/pkgconfig)
run(pkg-config --exact-version=${VERSION} tessel)
run(pkg-config --cflags --libs tessel)
separate_arguments(flags UNIX_COMMAND "${output}")
run(${COMPILER} ${WORK}/host/host.c -o ${WORK}/plain ${flags} -Wl,-rpath,${STAGE}/${LIBDIR})

run(${STAGE}/bin/tessel simulate ${WORK}/decay.tgx --duration 10ms)
foreach(host ${WORK}/cmake/host ${WORK}/plain)
  run(${host} ${WORK}/decay.tgx ${INI})
  if(NOT output MATCHES "channel 0: 0\n.*channel 1: [1-9][0-9]+\n.*channel 2: [1-9][0-9]+\n")
    message(FATAL_ERROR "the host of docs/hosts.md prints: ${output}")
  endif()
endforeach()

# So are the simulated instruments, which the program finds where it lies.
file(RENAME ${STAGE} ${WORK}/moved)
run(${WORK}/moved/bin/tessel devices --sim)
if(NOT output MATCHES "SIM-ZP-0 .* free " OR NOT output MATCHES "${WORK}/moved/${LIBDIR}/tessel/instruments/CD90Lib.so, version")
  message(FATAL_ERROR "tessel devices --sim: ${output}")
endif()
file(RENAME ${WORK}/moved ${STAGE})

# The installed program finds the installed library.
run(${STAGE}/bin/tessel --version)
if(NOT output STREQUAL "tessel ${VERSION}\n")
  message(FATAL_ERROR "tessel --version: ${output}")
endif()

# Its manual has a page for each command, and bash completes commands, options and choices from its help.
file(GLOB pages ${STAGE}/share/man/man1/tessel*.1)
list(LENGTH pages count)
file(READ ${STAGE}/share/man/man1/tessel-simulate.1 page)
if(count LESS 18 OR NOT page MATCHES "\\.SH SYNOPSIS\n\\.B tessel simulate .*\\.SH OPTIONS.*\n  \\\\-\\\\-force ")
  message(FATAL_ERROR "${count} pages, that of simulate:\n${page}")
endif()
foreach(line "simulate --mode '':t2 t3" "hist:histogram hist2d" "--ini x simulate --fam:--family")
  string(REPLACE ":" ";" line "${line}")
  list(GET line 0 typed)
  list(GET line 1 expected)
  run(bash -c "PATH=${STAGE}/bin:$PATH && . ${STAGE}/share/bash-completion/completions/tessel && COMP_WORDS=(tessel ${typed}) &&
               COMP_CWORD=$(( \${#COMP_WORDS[@]} - 1 )) && _tessel && echo \${COMPREPLY[@]}")
  if(NOT output STREQUAL "${expected}\n")
    message(FATAL_ERROR "completion of tessel ${typed}: ${output}")
  endif()
endforeach()

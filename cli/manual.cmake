# Writes the manual pages of the program and of its commands into FOLDER, from what --help prints.
function(page name)
  execute_process(COMMAND ${PROGRAM} ${ARGN} --help
                  COMMAND awk -v name=${name} -v version=${VERSION} -f ${CMAKE_CURRENT_LIST_DIR}/man_page.awk
                  OUTPUT_FILE ${FOLDER}/${name}.1 RESULTS_VARIABLE results)
  if(NOT results STREQUAL "0;0")
    message(FATAL_ERROR "${name}: ${results}")
  endif()
endfunction()

file(REMOVE_RECURSE ${FOLDER})
file(MAKE_DIRECTORY ${FOLDER})
page(tessel)
execute_process(COMMAND ${PROGRAM} --help OUTPUT_VARIABLE help)
string(REGEX REPLACE ".*\nSubcommands:\n" "\n" help "${help}")
string(FIND "${help}" "\n\n" end)
string(SUBSTRING "${help}" 0 ${end} help)
string(REGEX MATCHALL "\n  [a-z0-9]+" commands "${help}")
foreach(command ${commands})
  string(STRIP "${command}" command)
  page(tessel-${command} ${command})
endforeach()

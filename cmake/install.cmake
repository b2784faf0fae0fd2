# What `cmake --install` lays down: library, header, program with its manual and completion, find_package(Tessel) and tessel.pc.
include(CMakePackageConfigHelpers)

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Tessel)

install(TARGETS tessel EXPORT TesselTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS tessel_program RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_SOURCE_DIR}/cli/completion.bash RENAME tessel
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
if(NOT TESSEL_SANITIZE)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/cli/man1 DESTINATION ${CMAKE_INSTALL_MANDIR})
endif()

install(EXPORT TesselTargets NAMESPACE Tessel:: DESTINATION ${config_dir})
file(WRITE ${PROJECT_BINARY_DIR}/TesselConfig.cmake "include(\"\${CMAKE_CURRENT_LIST_DIR}/TesselTargets.cmake\")\n")
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TesselConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TesselConfig.cmake ${PROJECT_BINARY_DIR}/TesselConfigVersion.cmake
        DESTINATION ${config_dir})

# The prefix is found from where tessel.pc lies, so an installed tree may be moved.
file(RELATIVE_PATH TESSEL_PC_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${CMAKE_CURRENT_LIST_DIR}/tessel.pc.in ${PROJECT_BINARY_DIR}/tessel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tessel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The Python package, which finds the library in the lib folder that it lies in.
set(TESSEL_PYTHON_DIR lib/python3/dist-packages CACHE STRING "Where the Python package goes, from the prefix")
install(DIRECTORY python/tessel DESTINATION ${TESSEL_PYTHON_DIR} PATTERN __pycache__ EXCLUDE
        PATTERN prefix EXCLUDE)

# A wheel with library, program and simulated instruments in it, in build/PRESET/wheel.
if(NOT TESSEL_SANITIZE)
  set(wheel_dir ${PROJECT_BINARY_DIR}/wheel)
  add_custom_target(wheel
    COMMAND ${CMAKE_COMMAND} --install ${PROJECT_BINARY_DIR} --prefix ${wheel_dir}/prefix
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${wheel_dir}/source
    COMMAND ${CMAKE_COMMAND} -E copy_directory ${PROJECT_SOURCE_DIR}/python ${wheel_dir}/source
    COMMAND ${CMAKE_COMMAND} -E env TESSEL_PREFIX=${wheel_dir}/prefix
            /usr/bin/python3 -m build --wheel --no-isolation --outdir ${wheel_dir} ${wheel_dir}/source
    DEPENDS tessel tessel_program tessel_manual tessel_sim_instruments VERBATIM)
endif()

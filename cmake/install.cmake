# SPDX-License-Identifier: MIT
# `cmake --install`: library, tool, headers, and the files for pkg-config and CMake.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# No path of the building machine gets into the files. Debug builds keep theirs, by which debuggers
# and gcov find the sources.
foreach(target orvel_objects orvel-path)
    target_compile_options(${target} PRIVATE
        $<$<NOT:$<CONFIG:Debug>>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>
        $<$<NOT:$<CONFIG:Debug>>:-ffile-prefix-map=${PROJECT_BINARY_DIR}=build>)
endforeach()

install(TARGETS orvel_core EXPORT orvel_core INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS orvel-path)
install(FILES include/orvel_core.h include/orvel_core.hpp TYPE INCLUDE)
install(FILES tools/orvel-path.bash-completion RENAME orvel-path
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
set(ORVEL_ZSH_DIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING "Where zsh looks for completions")
install(FILES tools/_orvel-path DESTINATION ${ORVEL_ZSH_DIR})
install(FILES tools/orvel-path.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)

# Removes what the last `cmake --install` without DESTDIR put down.
add_custom_target(uninstall
    COMMAND xargs --arg-file=install_manifest.txt --delimiter=\\n rm --force --verbose
    WORKING_DIRECTORY ${PROJECT_BINARY_DIR} VERBATIM)

# find_package(orvel_core). There is nothing that its users must find beside it, so the list of
# targets is all of the package; and what has one SONAME has one major version.
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/orvel_core)
install(EXPORT orvel_core NAMESPACE orvel:: FILE orvel_coreConfig.cmake DESTINATION ${package_dir})
write_basic_package_version_file(orvel_coreConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/orvel_coreConfigVersion.cmake DESTINATION ${package_dir})

# pkg-config. Filled in twice, since the prefix is not known until `cmake --install --prefix`.
cmake_path(APPEND pc_libdir "\${prefix}" "${CMAKE_INSTALL_LIBDIR}")
cmake_path(APPEND pc_includedir "\${prefix}" "${CMAKE_INSTALL_INCLUDEDIR}")
set(pc_prefix "@CMAKE_INSTALL_PREFIX@")
configure_file(cmake/orvel_core.pc.in orvel_core.pc.in @ONLY)
install(CODE "configure_file(\"${PROJECT_BINARY_DIR}/orvel_core.pc.in\"
                             \"${PROJECT_BINARY_DIR}/orvel_core.pc\" @ONLY)")
install(FILES ${PROJECT_BINARY_DIR}/orvel_core.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

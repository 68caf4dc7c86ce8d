# What `cmake --install` puts where, the CMake package, qelimaging.pc and the
# Debian package (cpack -G DEB). Included at the end of the top-level
# CMakeLists.txt; the folders themselves are set in QELImagingDirs.cmake.
include(CMakePackageConfigHelpers)

# Headers: the interfaces, host.h and the version written by the build.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/qel
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_BINARY_DIR}/include/qel/version.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qel)

# The module and the runtime share one folder, as hosts load them: plain
# shared objects opened with dlopen, so not executable.
install(TARGETS QELImaging CollectionsEx
        LIBRARY DESTINATION ${QEL_INSTALL_MODULEDIR}
                PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
install(TARGETS qel RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/docs/qel.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR})

# An installed qel looks for the module relative to itself, so that a prefix
# (or an unpacked .deb) works wherever it lies.
cmake_path(RELATIVE_PATH QEL_INSTALL_MODULEDIR BASE_DIRECTORY ${CMAKE_INSTALL_BINDIR}
           OUTPUT_VARIABLE QEL_MODULEDIR_FROM_BINDIR)
target_compile_definitions(qel PRIVATE QELIMAGING_RELATIVE_MODULE_DIR="${QEL_MODULEDIR_FROM_BINDIR}")

# qel/install_dirs.h and qelimaging.pc name absolute folders, known only when
# installing (cmake --install --prefix, or cpack), so they are written then.
install(CODE "
  set(QEL_TEMPLATE_DIR \"${PROJECT_SOURCE_DIR}/cmake\")
  set(QEL_VERSION \"${PROJECT_VERSION}\")
  set(QEL_INCLUDEDIR \"${CMAKE_INSTALL_INCLUDEDIR}\")
  set(QEL_LIBDIR \"${CMAKE_INSTALL_LIBDIR}\")
  set(QEL_MODULEDIR \"${QEL_INSTALL_MODULEDIR}\")
  set(QEL_DL_LIBS \"${CMAKE_DL_LIBS}\")
  include(\"${PROJECT_SOURCE_DIR}/cmake/write_installed_paths.cmake\")
")

# find_package(QELImaging CONFIG): the target QELImaging::host, relocatable.
set(QEL_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/QELImaging)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/QELImagingConfig.cmake.in
  ${PROJECT_BINARY_DIR}/QELImagingConfig.cmake
  INSTALL_DESTINATION ${QEL_INSTALL_CMAKEDIR}
  PATH_VARS CMAKE_INSTALL_INCLUDEDIR QEL_INSTALL_MODULEDIR QEL_INSTALL_PYTHONDIR)
# 0.x releases may change the interfaces between minor versions.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QELImagingConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion ARCH_INDEPENDENT)
install(FILES ${PROJECT_BINARY_DIR}/QELImagingConfig.cmake ${PROJECT_BINARY_DIR}/QELImagingConfigVersion.cmake
        DESTINATION ${QEL_INSTALL_CMAKEDIR})

# Debian package. Files in the package are owned by root and stripped; the
# dependencies come from dpkg-shlibdeps.
find_program(QEL_GZIP gzip)
set(QEL_DEBIAN_DOCS ${PROJECT_BINARY_DIR}/debian-docs)
file(MAKE_DIRECTORY ${QEL_DEBIAN_DOCS})
file(COPY_FILE ${PROJECT_SOURCE_DIR}/cmake/debian/copyright ${QEL_DEBIAN_DOCS}/copyright ONLY_IF_DIFFERENT)
configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in ${QEL_DEBIAN_DOCS}/changelog @ONLY)
# Debian wants the changelog compressed with no time stamp in it.
add_custom_command(OUTPUT ${QEL_DEBIAN_DOCS}/changelog.gz
  COMMAND ${QEL_GZIP} -9nc ${QEL_DEBIAN_DOCS}/changelog > ${QEL_DEBIAN_DOCS}/changelog.gz
  DEPENDS ${QEL_DEBIAN_DOCS}/changelog)
add_custom_target(qel_debian_docs ALL DEPENDS ${QEL_DEBIAN_DOCS}/changelog.gz)
install(FILES ${QEL_DEBIAN_DOCS}/copyright ${QEL_DEBIAN_DOCS}/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(CPACK_PACKAGE_NAME qelimaging)
set(CPACK_PACKAGE_VENDOR "QELImaging developers")
set(CPACK_PACKAGE_CONTACT "QELImaging developers <qelimaging@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "image-processing plug-in module, host runtime and qel tool")
set(CPACK_PACKAGE_DESCRIPTION "QELImaging is an image-processing plug-in module: five components
for colour, geometry, deformation, filtering and arithmetic on images of 1 to
32 bits per pixel, with the same output bytes on every x86-64 machine.
.
This package holds the module and its host runtime, the qel command-line
tool, the C++ interface headers, a CMake package and a pkg-config file.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# Install with DESTDIR, so that files written while installing name /usr and
# not the staging folder.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX ${CPACK_PACKAGING_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The module folder holds private libraries that dpkg-shlibdeps must see.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CPACK_PACKAGING_INSTALL_PREFIX}/${QEL_INSTALL_MODULEDIR})
# The Python package (component "python") is installed by cmake --install but
# left out of the Debian package, whose Python folder and dependencies would be
# those of the machine that built it.
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
set(CPACK_COMPONENTS_ALL Unspecified)
include(CPack)

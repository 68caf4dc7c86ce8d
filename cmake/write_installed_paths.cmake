# Run while installing: writes qel/install_dirs.h and qelimaging.pc with the
# absolute folders of this installation (DESTDIR, as cpack uses, is left out
# of what they name).
set(QEL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(QEL_INSTALLED_MODULE_DIR "${QEL_PREFIX}/${QEL_MODULEDIR}")
configure_file("${QEL_TEMPLATE_DIR}/install_dirs.h.in" "$ENV{DESTDIR}${QEL_PREFIX}/${QEL_INCLUDEDIR}/qel/install_dirs.h" @ONLY)
set(QEL_PC_LIBS "")
foreach(library IN LISTS QEL_DL_LIBS)
  string(APPEND QEL_PC_LIBS " -l${library}")
endforeach()
configure_file("${QEL_TEMPLATE_DIR}/qelimaging.pc.in" "$ENV{DESTDIR}${QEL_PREFIX}/${QEL_LIBDIR}/pkgconfig/qelimaging.pc" @ONLY)
message(STATUS "Installing: $ENV{DESTDIR}${QEL_PREFIX}/${QEL_INCLUDEDIR}/qel/install_dirs.h")
message(STATUS "Installing: $ENV{DESTDIR}${QEL_PREFIX}/${QEL_LIBDIR}/pkgconfig/qelimaging.pc")

# Installation folders, relative to the prefix. Set before the subfolders so
# that their install rules (qel, the Python package) use the same ones.
#   QEL_INSTALL_MODULEDIR  the module and the runtime (P/lib/qelimaging)
#   QEL_INSTALL_PYTHONDIR  the Python package (P/lib/python3/dist-packages for /usr,
#                          P/lib/python3.X/dist-packages elsewhere)
# Documentation goes under the package's name, as Debian expects.
set(CMAKE_INSTALL_DOCDIR share/doc/qelimaging CACHE PATH "Documentation (share/doc/qelimaging)")
include(GNUInstallDirs)
set(QEL_INSTALL_MODULEDIR ${CMAKE_INSTALL_LIBDIR}/qelimaging CACHE STRING
    "Folder, under the prefix, of the installed module and host runtime")
# Debian's Python looks in /usr/lib/python3/dist-packages for the /usr prefix
# and in lib/python3.X/dist-packages under any other (/usr/local).
set(QEL_DEFAULT_PYTHONDIR lib/python3/dist-packages)
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr" AND EXISTS /usr/bin/python3)
  execute_process(COMMAND /usr/bin/python3 -c "import sys; print('%d.%d' % sys.version_info[:2])"
                  OUTPUT_VARIABLE QEL_DEBIAN_PYTHON_VERSION OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(QEL_DEBIAN_PYTHON_VERSION)
    set(QEL_DEFAULT_PYTHONDIR lib/python${QEL_DEBIAN_PYTHON_VERSION}/dist-packages)
  endif()
endif()
set(QEL_INSTALL_PYTHONDIR ${QEL_DEFAULT_PYTHONDIR} CACHE STRING
    "Folder, under the prefix, of the installed Python package")

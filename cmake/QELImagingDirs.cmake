# Installation folders, relative to the prefix. Set before the subfolders so
# that their install rules (qel, the Python package) use the same ones.
#   QEL_INSTALL_MODULEDIR  the module and the runtime (P/lib/qelimaging)
#   QEL_INSTALL_PYTHONDIR  the Python package (P/lib/python3/dist-packages)
# Documentation goes under the package's name, as Debian expects.
set(CMAKE_INSTALL_DOCDIR share/doc/qelimaging CACHE PATH "Documentation (share/doc/qelimaging)")
include(GNUInstallDirs)
set(QEL_INSTALL_MODULEDIR ${CMAKE_INSTALL_LIBDIR}/qelimaging CACHE STRING
    "Folder, under the prefix, of the installed module and host runtime")
set(QEL_INSTALL_PYTHONDIR lib/python3/dist-packages CACHE STRING
    "Folder, under the prefix, of the installed Python package")

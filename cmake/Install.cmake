# What `cmake --install` lays down, and the Debian package that `cpack` makes of it.
include(GNUInstallDirs)

set(documents "${PROJECT_BINARY_DIR}/documents")
install(TARGETS orvane RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
if(ORVANE_GZIP)
  set(manual orvane.1.gz)
else()
  set(manual orvane.1)
endif()
install(FILES "${documents}/${manual}" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
install(FILES "${documents}/orvane" DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
install(FILES "${PROJECT_SOURCE_DIR}/LICENSE" DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/orvane" RENAME copyright)
# The program looks for them in ../share/orvane from its own folder, and takes itself for installed where that is.
install(DIRECTORY "${PROJECT_SOURCE_DIR}/Digits" DESTINATION "share/orvane" OPTIONAL)

set(ORVANE_HOMEPAGE "" CACHE STRING "Address of the project's page, which a package names")

# What cpack makes and its own work stay in the build folder, wherever it is called.
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/package")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME orvane)
set(CPACK_PACKAGE_CONTACT "The Orvane developers <orvane@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Mathematical constants to very many digits, proved")
set(CPACK_PACKAGE_DESCRIPTION
    "Computes Pi, e, roots and other constants to as many digits as the memory holds and
 proves every large operation: for digit records, as a benchmark and as a stress test.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION math)
if(ORVANE_HOMEPAGE)
  set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "${ORVANE_HOMEPAGE}")
endif()
# Which packages the program needs is read from the program itself.
find_program(ORVANE_SHLIBDEPS dpkg-shlibdeps)
mark_as_advanced(ORVANE_SHLIBDEPS)
if(ORVANE_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
else()
  message(STATUS "dpkg-shlibdeps not found (package dpkg-dev): a package made by cpack will name no dependencies")
endif()
include(CPack)

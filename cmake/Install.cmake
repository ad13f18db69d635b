# Installation: the module where the platform keeps PKCS #11 modules, the device library beside
# what loads it, the token tool, and p11-kit's module file; and the Debian package made of them
# (cpack -G DEB). Configure with -DCMAKE_INSTALL_PREFIX=/usr for Debian's layout
# (lib/<multiarch>/pkcs11).
include(GNUInstallDirs)

if(WIN32)
  install(TARGETS ostrel-pkcs11 RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
                                LIBRARY DESTINATION ${CMAKE_INSTALL_BINDIR})
  return()
endif()

set(OSTREL_MODULE_DIR ${CMAKE_INSTALL_LIBDIR}/pkcs11)
# The software token is no PKCS #11 module itself: it lives in a folder of its own, which the
# module finds relative to its own file.
set(OSTREL_PRIVATE_LIBRARY_DIR ${CMAKE_INSTALL_LIBDIR}/ostrel)
set_target_properties(ostrel-pkcs11 PROPERTIES INSTALL_RPATH "$ORIGIN/../ostrel")
install(TARGETS ostrel-pkcs11 LIBRARY DESTINATION ${OSTREL_MODULE_DIR})
if(OSTREL_BUILD_SOFTTOKEN)
  install(TARGETS ostrel_softtoken LIBRARY DESTINATION ${OSTREL_PRIVATE_LIBRARY_DIR})
  install(TARGETS ostrel-token RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

set(OSTREL_INSTALLED_MODULE ${CMAKE_INSTALL_FULL_LIBDIR}/pkcs11/ostrel-pkcs11.so)
configure_file(${PROJECT_SOURCE_DIR}/packaging/ostrel.module.in
               ${PROJECT_BINARY_DIR}/packaging/ostrel.module @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/packaging/ostrel.module
        DESTINATION ${CMAKE_INSTALL_DATADIR}/p11-kit/modules)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ostrel-pkcs11)
set(CPACK_PACKAGE_VENDOR Kelvanetics)
set(CPACK_PACKAGE_CONTACT "Kelvanetics Ostrel team <ostrel@kelvanetics.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "PKCS #11 module for Ostrel USB tokens, with a software token")
set(CPACK_PACKAGE_DESCRIPTION
    "The Ostrel PKCS #11 (Cryptoki 2.20) module lets browsers, mail clients, signing tools,\n\
SSH and Java use Ostrel tokens. This package carries the module, registered with p11-kit,\n\
and the software token that stands in for the hardware, with its ostrel-token tool.")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Where the shared-library dependency scan looks for our own device library.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/softtoken)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "p11-kit")
include(CPack)

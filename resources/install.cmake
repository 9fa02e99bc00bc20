# Installation (cmake --install, GNUInstallDirs) and the Debian package (cpack -G DEB).
#
#   bin/                                   ArgentPasswordMngr, argentpm, argentpm-clipkeeper,
#                                          argentpm-browser
#   share/argentpm/                        start.dat, SampleUser.bdb, Languages/, icons, readme.txt
#   share/applications/                    the menu entry
#   share/icons/hicolor/{16..256,scalable} the program's icon
#   share/metainfo/                        AppStream data
#   share/man/man1/                        argentpm.1, ArgentPasswordMngr.1
#   share/bash-completion/completions/     argentpm
#   share/zsh/vendor-completions/          _argentpm (site-functions for prefixes other than /usr)

set(ARGENT_APP_ID org.argentpm.ArgentPasswordMngr)
set(ARGENT_DESKTOP_DIR ${CMAKE_SOURCE_DIR}/resources/desktop)
set(ARGENT_GEN_DIR ${CMAKE_BINARY_DIR}/generated)

# argentpm starts the clipboard keeper from its own folder.
install(TARGETS ArgentPasswordMngr argentpm argentpm-clipkeeper argentpm-browser RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# The data folder: what build/bin holds beside the programs.
install(FILES resources/start.dat resources/readme.txt resources/mainicon.ico resources/mainicon.png
              ${CMAKE_BINARY_DIR}/bin/SampleUser.bdb
        DESTINATION ${CMAKE_INSTALL_DATADIR}/argentpm)
install(DIRECTORY resources/Languages/ DESTINATION ${CMAKE_INSTALL_DATADIR}/argentpm/Languages
        FILES_MATCHING PATTERN "*.lng")

install(FILES ${ARGENT_DESKTOP_DIR}/${ARGENT_APP_ID}.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
configure_file(${ARGENT_DESKTOP_DIR}/${ARGENT_APP_ID}.metainfo.xml ${ARGENT_GEN_DIR}/${ARGENT_APP_ID}.metainfo.xml @ONLY)
install(FILES ${ARGENT_GEN_DIR}/${ARGENT_APP_ID}.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)

# Icons: the sizes the .ico holds, 128 and 256 from the large PNG, and the SVG.
foreach(size 16 32 48 64 128 256)
  install(FILES ${ARGENT_DESKTOP_DIR}/hicolor/${size}.png
          DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps RENAME ${ARGENT_APP_ID}.png)
endforeach()
install(FILES ${ARGENT_DESKTOP_DIR}/argentpm.svg DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps
        RENAME ${ARGENT_APP_ID}.svg)

foreach(page argentpm.1 ArgentPasswordMngr.1)
  configure_file(resources/man/${page} ${ARGENT_GEN_DIR}/man/${page} @ONLY)
  install(FILES ${ARGENT_GEN_DIR}/man/${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endforeach()

install(FILES resources/completion/argentpm.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        RENAME argentpm)
# zsh looks in vendor-completions under /usr (where Debian's packages put theirs) and in
# site-functions under other prefixes.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(ARGENT_ZSH_DIR ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
else()
  set(ARGENT_ZSH_DIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
endif()
install(FILES resources/completion/_argentpm DESTINATION ${ARGENT_ZSH_DIR})

# The Debian package: cpack -G DEB in the build folder (see README); it installs under /usr. Its dependencies are read from the shared libraries the programs link
# (dpkg-shlibdeps).
set(CPACK_PACKAGE_NAME argentpm)
set(CPACK_PACKAGE_VENDOR "The Argent Password Manager developers")
set(CPACK_PACKAGE_CONTACT "Argent Password Manager developers <argentpm@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "desktop password manager with a command-line companion")
set(CPACK_PACKAGE_DESCRIPTION "Argent Password Manager keeps logins and passwords in encrypted database
files, one per user, each protected by its master password. The desktop program
ArgentPasswordMngr shows them as a tree of folders and records; argentpm works on
the same files from a terminal.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/resources/desktop/deb_layout.cmake)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
# The library dependencies (libssl3 for the Secret Service's libcrypto among them) come from
# dpkg-shlibdeps.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS OFF)
# The platform plugin that draws the window on X11 or Wayland is loaded at run time, so
# no library dependency names it.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "qt6-wayland")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)

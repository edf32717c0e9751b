# Packages made with CPack from the install rules:
#   Linux: `cpack` in the build folder makes pellomar_<version>_<arch>.deb.
#   macOS: the target `dmg` makes Pellomar-<version>.dmg holding Pellomar.app,
#          made self-contained with macdeployqt.
# Included from the top CMakeLists.txt after every subdirectory, so that the
# macdeployqt step below runs after everything else is installed.

set(CPACK_PACKAGE_NAME Pellomar)
set(CPACK_PACKAGE_VENDOR Pellomar)
set(CPACK_PACKAGE_CONTACT "Pellomar developers <pellomar@example.com>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Moves Apple Mail mailboxes into an Outlook 2011 archive")
# Lines under 80 characters: apt and dpkg show a package description as written.
string(CONCAT CPACK_PACKAGE_DESCRIPTION
  "Pellomar reads the mail that Apple Mail keeps on disk (.emlx files in .mbox\n"
  "folders) and writes the chosen folders into one .rge archive package that\n"
  "Outlook 2011 for Mac imports. It comes as a window (pellomar) and as a\n"
  "command-line tool (pellomar-cli).")
# The release build keeps debug information; the package does not.
set(CPACK_STRIP_FILES ON)

if(APPLE)
  set(CPACK_GENERATOR DragNDrop)
  set(CPACK_PACKAGE_FILE_NAME Pellomar-${PROJECT_VERSION})
  set(CPACK_DMG_VOLUME_NAME Pellomar)

  if(PELLOMAR_BUILD_GUI)
    # macdeployqt sits beside qmake.
    get_target_property(qmake_location Qt5::qmake IMPORTED_LOCATION)
    get_filename_component(qt_bin_dir ${qmake_location} DIRECTORY)
    find_program(PELLOMAR_MACDEPLOYQT NAMES macdeployqt HINTS ${qt_bin_dir})
    if(NOT PELLOMAR_MACDEPLOYQT)
      message(FATAL_ERROR "macdeployqt was not found beside ${qmake_location}; it comes with Qt.")
    endif()
    # Copies the Qt frameworks and plugins (Qt WebEngine's helper process too)
    # into the installed bundle and points both executables at them. It runs
    # on the installed copy, so the bundle in the build folder stays as built.
    install(CODE "
      set(bundle \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/Pellomar.app\")
      message(STATUS \"Running macdeployqt on \${bundle}\")
      execute_process(
        COMMAND \"${PELLOMAR_MACDEPLOYQT}\" \"\${bundle}\"
                \"-executable=\${bundle}/Contents/MacOS/pellomar-cli\" -always-overwrite
        RESULT_VARIABLE result)
      if(NOT result EQUAL 0)
        message(FATAL_ERROR \"macdeployqt failed (\${result})\")
      endif()")

    add_custom_target(dmg
      COMMAND ${CMAKE_CPACK_COMMAND} -G DragNDrop --config ${CMAKE_BINARY_DIR}/CPackConfig.cmake
      WORKING_DIRECTORY ${CMAKE_BINARY_DIR}
      COMMENT "Making Pellomar-${PROJECT_VERSION}.dmg"
      VERBATIM)
    add_dependencies(dmg pellomar pellomar-cli)
  endif()
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_DEBIAN_PACKAGE_NAME pellomar)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SECTION mail)
  set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
  # Depends is worked out by dpkg-shlibdeps (package dpkg-dev) from the
  # libraries the executables link, and added to what is named here: Qt's
  # SQLite driver, a plugin that reads the account names, is loaded at run
  # time and so not seen by dpkg-shlibdeps.
  set(CPACK_DEBIAN_PACKAGE_DEPENDS libqt5sql5-sqlite)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  # The help page and the support links open through xdg-open.
  set(CPACK_DEBIAN_PACKAGE_RECOMMENDS xdg-utils)
endif()

include(CPack)

# What is installed, and the two packages: `board`, a tarball to be unpacked at the
# root of a board's file system, and `tools`, a Debian package of the host's side
# with the virtual board. ../package builds both so that equal sources give equal
# bytes.
set(package_texts ${CMAKE_BINARY_DIR}/package)
set(readable OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  ${readable} OWNER_EXECUTE GROUP_EXECUTE WORLD_EXECUTE)

# Our own terms, and those of what is compiled in.
function(write_copyright file)
  file(READ ${CMAKE_SOURCE_DIR}/packaging/COPYRIGHT text)
  foreach(package ${ARGN})
    set(terms /usr/share/doc/${package}/copyright)
    if(EXISTS ${terms})
      file(READ ${terms} theirs)
      string(APPEND text "\n---- ${package}\n\n${theirs}")
    endif()
  endforeach()
  file(WRITE ${file} "${text}")
endfunction()

# ---- board -----------------------------------------------------------------------
configure_file(${CMAKE_SOURCE_DIR}/packaging/board/version.ini.in ${package_texts}/version.ini @ONLY)
write_copyright(${package_texts}/board/COPYRIGHT musl-dev)
install(TARGETS vantorig DESTINATION home/tovin COMPONENT board)
install(PROGRAMS packaging/board/update.sh DESTINATION home/tovin COMPONENT board)
install(FILES ${package_texts}/version.ini DESTINATION home/tovin COMPONENT board)
install(PROGRAMS packaging/board/S90vantorig DESTINATION etc/init.d COMPONENT board)
install(DIRECTORY packaging/examples DESTINATION usr/share/doc/vantorig COMPONENT board
  FILE_PERMISSIONS ${readable})
install(FILES ${package_texts}/board/COPYRIGHT packaging/hd.ini docs/board.md docs/bench-manual.md
  docs/hd-ini.md docs/host-protocol.md docs/register-map.md docs/symptoms.md
  DESTINATION usr/share/doc/vantorig COMPONENT board)

# ---- tools -----------------------------------------------------------------------
if(VANTORIG_HOST_TOOLS)
  write_copyright(${package_texts}/tools/copyright libcli11-dev nlohmann-json3-dev)
  install(TARGETS melk vboard-cli DESTINATION bin COMPONENT tools)
  # Where the launcher looks for its companions.
  install(TARGETS vboard-preload vboard-encode DESTINATION lib/vboard COMPONENT tools)
  install(TARGETS vantorig DESTINATION lib/vboard COMPONENT tools)
  install(FILES packaging/demo.ini DESTINATION lib/vboard COMPONENT tools)
  install(PROGRAMS packaging/board/update.sh DESTINATION lib/vboard COMPONENT tools)
  set(share share/doc/vantorig-tools)
  install(DIRECTORY docs/ DESTINATION ${share} COMPONENT tools FILE_PERMISSIONS ${readable}
    FILES_MATCHING PATTERN *.md)
  install(DIRECTORY packaging/examples DESTINATION ${share} COMPONENT tools
    FILE_PERMISSIONS ${readable})
  install(FILES ${package_texts}/tools/copyright README.md packaging/hd.ini DESTINATION ${share}
    COMPONENT tools)
  # bash looks for a program's completion under the program's name.
  foreach(program melk vboard)
    install(FILES packaging/completion/melk-vboard.bash RENAME ${program} COMPONENT tools
      DESTINATION share/bash-completion/completions)
  endforeach()
  file(GLOB man_pages CONFIGURE_DEPENDS packaging/man/*.[15])
  foreach(page ${man_pages})
    get_filename_component(name ${page} NAME)
    string(REGEX MATCH "[15]$" section ${name})
    set(packed ${package_texts}/${name}.gz)
    add_custom_command(OUTPUT ${packed} DEPENDS ${page} VERBATIM
      COMMAND gzip -9nc ${page} > ${packed})
    list(APPEND packed_pages ${packed})
    install(FILES ${packed} DESTINATION share/man/man${section} COMPONENT tools)
  endforeach()
  add_custom_target(man-pages ALL DEPENDS ${packed_pages})
endif()

# ---- packages --------------------------------------------------------------------
string(TOLOWER ${CMAKE_SYSTEM_PROCESSOR} processor)
set(CPACK_GENERATOR TGZ)
if(VANTORIG_HOST_TOOLS)
  list(APPEND CPACK_GENERATOR DEB)
endif()
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_SOURCE_DIR}/cmake/PackageKind.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/cmake/PackageTree.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/cmake/PackageSort.cmake)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "the maintainers of vantorig")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "host side and virtual board of a video encoder board")
set(CPACK_STRIP_FILES ON)
set(CPACK_BOARD_FILE_NAME vantorig-${PROJECT_VERSION}-board-${processor})
set(CPACK_DEBIAN_PACKAGE_NAME vantorig-tools)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION electronics)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "bubblewrap, psmisc")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR})
include(CPack)

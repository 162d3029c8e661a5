# For cpack: packs what it has packed once more, in the order of names. Its own order
# is that in which the file system lists a directory.
set(tree ${CPACK_TEMPORARY_DIRECTORY}/../in-order)
foreach(package ${CPACK_PACKAGE_FILES})
  file(REMOVE_RECURSE ${tree})
  file(MAKE_DIRECTORY ${tree})
  if(package MATCHES "[.]deb$")
    execute_process(COMMAND_ERROR_IS_FATAL ANY COMMAND sh -euc [[
      dpkg-deb -R "$1" "$2/deb"
      cd "$2/deb/DEBIAN"
      LC_ALL=C sort -k 2 md5sums >../../sums
      cat ../../sums >md5sums
      [ -z "${SOURCE_DATE_EPOCH:-}" ] || find .. -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
      dpkg-deb --root-owner-group -b "$2/deb" "$1" >/dev/null
    ]] sh ${package} ${tree})
  else()
    execute_process(COMMAND_ERROR_IS_FATAL ANY COMMAND sh -euc [[
      tar -xpzf "$1" -C "$2"
      cd "$2"
      tar -c --sort=name --owner=root:0 --group=root:0 --format=ustar -- * | gzip -9n >../packed
      mv ../packed "$1"
    ]] sh ${package} ${tree})
  endif()
  file(REMOVE_RECURSE ${tree})
endforeach()

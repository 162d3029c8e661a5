# For cpack: makes what is about to be packed independent of who packs it and when.
# Directories are everybody's to read, whatever the umask: a board's /etc takes its
# mode from the tarball. Dates are that of the sources, where SOURCE_DATE_EPOCH
# tells it.
execute_process(COMMAND find ${CPACK_TEMPORARY_DIRECTORY} -type d -exec chmod 755 {} +
  COMMAND_ERROR_IS_FATAL ANY)
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  execute_process(COMMAND find ${CPACK_TEMPORARY_DIRECTORY}
      -exec touch -h -d @$ENV{SOURCE_DATE_EPOCH} {} +
    COMMAND_ERROR_IS_FATAL ANY)
endif()

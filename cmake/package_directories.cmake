# Run by CPack before it packs. Directories are made under the mask of whoever packs, and a package
# would carry that to /usr.
execute_process(COMMAND find ${CPACK_TEMPORARY_INSTALL_DIRECTORY} -type d -exec chmod 0755 {} +
    COMMAND_ERROR_IS_FATAL ANY)

# SPDX-License-Identifier: Apache-2.0
# Manual pages and the changelog of a package are compressed, reproducibly. Run by cpack when all is installed.
file(GLOB pages "${CPACK_TEMPORARY_DIRECTORY}/usr/share/man/man[1-8]/*.[1-8]")
if(NOT pages)
  message(FATAL_ERROR "there is no manual page in ${CPACK_TEMPORARY_DIRECTORY}")
endif()
execute_process(
  COMMAND gzip --best --no-name ${pages} "${CPACK_TEMPORARY_DIRECTORY}/usr/share/doc/zel-lite/changelog"
  COMMAND_ERROR_IS_FATAL ANY)

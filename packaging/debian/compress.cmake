# SPDX-License-Identifier: Apache-2.0
# Manual pages and the changelog of a package are compressed, reproducibly. Run by cpack when all is installed.
file(GLOB_RECURSE plain "${CPACK_TEMPORARY_DIRECTORY}/*.[1-8]" "${CPACK_TEMPORARY_DIRECTORY}/changelog")
if(NOT plain)
  message(FATAL_ERROR "there is nothing to compress in ${CPACK_TEMPORARY_DIRECTORY}")
endif()
execute_process(COMMAND gzip --best --no-name ${plain} COMMAND_ERROR_IS_FATAL ANY)

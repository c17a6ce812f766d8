# SPDX-License-Identifier: Apache-2.0
# Manual pages and the changelog of a package are compressed, reproducibly. Run by cpack when all is installed: all
# components, which make one package, in one folder.
set(package "${CPACK_TEMPORARY_DIRECTORY}/ALL_COMPONENTS_IN_ONE")
file(GLOB pages "${package}/usr/share/man/man[1-8]/*.[1-8]")
if(NOT pages)
  message(FATAL_ERROR "there is no manual page in ${package}")
endif()
execute_process(
  COMMAND gzip --best --no-name ${pages} "${package}/usr/share/doc/zel-lite/changelog" COMMAND_ERROR_IS_FATAL ANY)

# SPDX-License-Identifier: Apache-2.0

# Runs at install time with SOURCE, SCRATCH, DESTINATION and ROOTS: copies the public headers, which
# are those an application reaches from the ROOTS, directly or not. Nothing else has to be listed, and
# a private header cannot slip in unless a public one includes it. Installed, they include one another
# as <ZaffoPlayback/...>, so that an application's own header of the same name is not taken for one.
cmake_policy(VERSION 3.25)
file(REMOVE_RECURSE ${SCRATCH})
set(waiting ${ROOTS})
set(public "")
while(waiting)
  list(POP_FRONT waiting header)
  if(header IN_LIST public)
    continue()
  endif()
  list(APPEND public ${header})
  file(READ ${SOURCE}/${header} text)
  string(REGEX MATCHALL "#include \"[^\"]+\"" includes "${text}")
  list(TRANSFORM includes REPLACE "#include \"([^\"]+)\"" "\\1")
  list(APPEND waiting ${includes})
  string(REGEX REPLACE "#include \"([^\"]+)\"" "#include <ZaffoPlayback/\\1>" text "${text}")
  file(WRITE ${SCRATCH}/${header} "${text}")
endwhile()
file(INSTALL DESTINATION ${DESTINATION} TYPE DIRECTORY FILES ${SCRATCH}/)

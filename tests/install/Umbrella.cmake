# SPDX-License-Identifier: MIT
# Fails when the umbrella header leaves out a public header.
file(READ "${UMBRELLA}" text)
foreach(header IN LISTS HEADERS)
  string(FIND "${text}" "#include <devsupport/${header}>" position)
  if(position EQUAL -1)
    message(SEND_ERROR "devsupport.h does not include <devsupport/${header}>")
  endif()
endforeach()

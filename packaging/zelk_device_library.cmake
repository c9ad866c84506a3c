# The device library that zelk::timing links, as ZELK_DEVICE_LIBRARY names it:
#
#   empty       the system's libzelk_timing.so.0
#   simulated   the simulated one of this project
#   none        none: the program links one itself, or decodes without a device
#   a path      that library
#
# zelk_add_device_library(<simulated> <failure>) makes zelk::device_library of it.
# <simulated> is the target or the file of the simulated library. The variable
# <failure> tells afterwards why there is none; it is empty when there is one.
function(zelk_add_device_library simulated failure)
  set(${failure} "" PARENT_SCOPE)
  if(TARGET zelk::device_library)
    return()
  endif()
  if(ZELK_DEVICE_LIBRARY STREQUAL "none")
    add_library(zelk::device_library INTERFACE IMPORTED)
    return()
  endif()
  if(ZELK_DEVICE_LIBRARY STREQUAL "simulated")
    set(library ${simulated})
  elseif(ZELK_DEVICE_LIBRARY)
    set(library ${ZELK_DEVICE_LIBRARY})
  else()
    find_library(ZELK_SYSTEM_DEVICE_LIBRARY NAMES libzelk_timing.so.0 libzelk_timing.so)
    mark_as_advanced(ZELK_SYSTEM_DEVICE_LIBRARY)
    set(library ${ZELK_SYSTEM_DEVICE_LIBRARY})
  endif()
  if(TARGET "${library}")
    add_library(zelk::device_library ALIAS ${library})
  elseif(EXISTS "${library}" AND NOT IS_DIRECTORY "${library}")
    add_library(zelk::device_library SHARED IMPORTED)
    set_target_properties(zelk::device_library PROPERTIES
      IMPORTED_LOCATION "${library}"
      IMPORTED_SONAME libzelk_timing.so.0)
  elseif(ZELK_DEVICE_LIBRARY STREQUAL "simulated")
    set(${failure} "The simulated device library is not there (${library})."
        PARENT_SCOPE)
  elseif(ZELK_DEVICE_LIBRARY)
    set(${failure} "ZELK_DEVICE_LIBRARY is no file (${ZELK_DEVICE_LIBRARY}). \
It may be a path, simulated, none, or empty for the system's library." PARENT_SCOPE)
  else()
    set(${failure} "There is no device library (libzelk_timing.so.0) on this system. \
Install the one of your converter, or choose another with \
-DZELK_DEVICE_LIBRARY=simulated or -DZELK_DEVICE_LIBRARY=/path/to/libzelk_timing.so.0." PARENT_SCOPE)
  endif()
endfunction()

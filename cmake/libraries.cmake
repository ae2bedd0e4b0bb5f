# The libraries that are linked, statically: every name starts without looking for one.
add_library(norv_libraries INTERFACE)
foreach(library sgutils2 json-c net sodium mbedcrypto)
  find_library(NORV_LIBRARY_${library} lib${library}.a REQUIRED)
  mark_as_advanced(NORV_LIBRARY_${library})
  target_link_libraries(norv_libraries INTERFACE ${NORV_LIBRARY_${library}})
endforeach()

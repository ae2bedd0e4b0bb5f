# The libraries that are linked, statically: every name starts without looking for one.
add_library(norv_libraries INTERFACE)
foreach(library sgutils2 json-c net sodium mbedcrypto)
  find_library(NORV_LIBRARY_${library} lib${library}.a REQUIRED)
  mark_as_advanced(NORV_LIBRARY_${library})
  target_link_libraries(norv_libraries INTERFACE ${NORV_LIBRARY_${library}})
endforeach()

# The primitives that the signature library resolves from the executable that loads it.
add_library(norv_exports INTERFACE)
foreach(primitive sha256_init sha256_starts_ret sha256_update_ret sha256_finish_ret sha256_free
                  pk_init pk_parse_public_key pk_verify pk_free)
  target_link_options(norv_exports INTERFACE -Wl,-u,mbedtls_${primitive}
                                             -Wl,--export-dynamic-symbol=mbedtls_${primitive})
endforeach()
target_link_libraries(norv_exports INTERFACE norv_libraries)

# The flags of every target, in two interface libraries: norv_flags for all code, norv_executable_flags for the one
# executable that ships.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS ON)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_C_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_CXX_FLAGS_DEBUG "-O1 -g")
set(CMAKE_C_FLAGS_DEBUG "-O1 -g")

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()

add_library(norv_flags INTERFACE)
target_compile_options(norv_flags INTERFACE
  -Wall -Wextra -Wshadow -Wconversion -Werror -ffunction-sections -fdata-sections -fstack-protector-strong
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>)
target_link_options(norv_flags INTERFACE -Wl,--gc-sections -Wl,-z,relro,-z,now)

# Code of the tests (target property NORV_TEST) is compiled for speed of compiling: it has no other to show.
set(is_test $<BOOL:$<TARGET_PROPERTY:NORV_TEST>>)
target_compile_options(norv_flags INTERFACE "$<${is_test}:-O0;-g1>")
# The product has one thread. The guards of its static variables would bring in the C++ runtime's exceptions, for whose
# memory every start pays.
target_compile_options(norv_flags INTERFACE $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<NOT:${is_test}>>:-fno-threadsafe-statics>)

if(NORV_COVERAGE)
  target_compile_options(norv_flags INTERFACE -fprofile-instr-generate -fcoverage-mapping)
  target_link_options(norv_flags INTERFACE -fprofile-instr-generate)
endif()

add_library(norv_executable_flags INTERFACE)
# Every role pays for the loader's work: relocations are packed, and a call is bound when it is first made, since a role
# makes a tenth of those that the executable has.
target_link_options(norv_executable_flags INTERFACE -pie -Wl,-z,pack-relative-relocs -Wl,-z,lazy)

if(NORV_SANITIZE)
  target_compile_options(norv_flags INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=all
                                              -fno-omit-frame-pointer)
  target_link_options(norv_flags INTERFACE -fsanitize=address,undefined)
  # The runtime goes into each executable, so that a preloaded library may stand before it. clang does so by itself.
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # Instrumented code of the standard library itself draws this warning.
    target_compile_options(norv_flags INTERFACE -Wno-maybe-uninitialized)
    target_link_options(norv_flags INTERFACE $<$<NOT:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>>:-static-libasan>)
  endif()
else()
  target_compile_options(norv_flags INTERFACE $<$<AND:$<CONFIG:Release>,$<NOT:${is_test}>>:-D_FORTIFY_SOURCE=3>)
  target_link_options(norv_executable_flags INTERFACE -static-libstdc++ -static-libgcc)
  if(CMAKE_BUILD_TYPE STREQUAL Release)
    if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
      # Fat objects: only the executable that ships is optimised at link time, all others link the machine code.
      target_compile_options(norv_flags INTERFACE "$<$<NOT:${is_test}>:-flto=auto;-ffat-lto-objects>")
      target_link_options(norv_flags INTERFACE $<$<NOT:$<BOOL:$<TARGET_PROPERTY:NORV_SHIPS>>>:-fno-lto>)
      target_link_options(norv_executable_flags INTERFACE -flto=auto -O2)
    endif()
  endif()
endif()

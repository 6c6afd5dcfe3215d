if((VARITAP_SANITIZE AND VARITAP_TSAN) OR (VARITAP_FUZZ AND (VARITAP_SANITIZE OR VARITAP_TSAN)))
  message(FATAL_ERROR "VARITAP_SANITIZE, VARITAP_TSAN and VARITAP_FUZZ cannot be combined")
endif()
if(VARITAP_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()
if(VARITAP_TSAN)
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()
# The fuzzing build (clang only): every library and the plug-in module carry
# libFuzzer's coverage counters and both sanitizers; the fuzzer programs link
# libFuzzer itself (tests/fuzz/).
if(VARITAP_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "VARITAP_FUZZ needs clang (cmake --preset fuzz)")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()

# Warnings are errors in Varitap's own code. Targets link this interface
# library privately so that the flags never leak into consumers.
add_library(varitap_warnings INTERFACE)
target_compile_options(varitap_warnings INTERFACE
  $<$<COMPILE_LANGUAGE:CXX,C>:-Wall -Wextra -Werror>)

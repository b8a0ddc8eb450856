# Compiler settings shared by every target of the project.
#
# The pixel pipeline's results are specified to the byte, so floating point
# stays strict: no -ffast-math, and no contraction of a*b+c into a fused
# multiply-add, which rounds differently from the written order.
add_library(korv_options INTERFACE)
target_compile_options(korv_options INTERFACE
  -Wall -Wextra -Wpedantic -Wno-missing-field-initializers
  -ffp-contract=off
  # Lets GCC if-convert clamps and selects in pixel loops; results are unchanged.
  -fno-trapping-math
  $<$<CONFIG:Release>:-O3>
  $<$<CONFIG:RelWithDebInfo>:-O3>
  # GCC 12 reports false -Wrestrict hits inside std::string at -O3 (GCC bug 105329).
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)

if(KORV_SANITIZE)
  set(_korv_san -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  # -O1 and line tables only: the instrumented build compiles in less than
  # half the time of -O3 -g, and reports still name functions and lines.
  target_compile_options(korv_options INTERFACE ${_korv_san} -O1 -g1)
  target_link_options(korv_options INTERFACE ${_korv_san})
endif()

if(KORV_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "KORV_FUZZ needs clang (use the 'fuzz' preset)")
  endif()
  # Everything is instrumented for coverage; the fuzz targets add the driver.
  target_compile_options(korv_options INTERFACE -fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer)
  target_link_options(korv_options INTERFACE -fsanitize=address,undefined)
endif()

# Warnings and floating-point rules shared by every target of the project.
# -ffp-contract=off: several results are truncations of double arithmetic
# (time differences, scaling weights) that must not change when the compiler
# would fuse a multiply and an add.
function(dravix_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -ffp-contract=off)
  # GCC 12 reports std::string concatenations as overlapping memcpy at -O3
  # (a known false positive of -Wrestrict in that release).
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(${target} PRIVATE -Wno-restrict)
  endif()
  # Pragmas name GCC-only warnings in places; clang need not know them.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(${target} PRIVATE -Wno-unknown-warning-option)
  endif()
  if(DRAVIX_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

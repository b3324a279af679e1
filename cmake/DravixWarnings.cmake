# Warnings and floating-point rules shared by every target of the project.
# -ffp-contract=off: several results are truncations of double arithmetic
# (time differences, scaling weights) that must not change when the compiler
# would fuse a multiply and an add.
function(dravix_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -ffp-contract=off)
  if(DRAVIX_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

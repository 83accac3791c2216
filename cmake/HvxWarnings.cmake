# One place for the warning set, so every target of the project builds alike.
function(hvx_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
endfunction()

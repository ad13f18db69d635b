# Warnings are errors for every target of ours, on GCC, Clang and MSVC alike.
function(ostrel_set_warnings target)
  if(MSVC)
    target_compile_options(${target} PRIVATE /W4 /WX /permissive- /utf-8)
  else()
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow
                                             -Wnon-virtual-dtor -Wcast-qual -Werror)
  endif()
endfunction()

# Warnings are errors for every target of ours, on GCC, Clang and MSVC alike.
function(ostrel_set_warnings target)
  if(MSVC)
    target_compile_options(${target} PRIVATE /W4 /WX /permissive- /utf-8)
    # The standard C library is used as the standard defines it (std::getenv in the tests):
    # Microsoft's deprecation of it in favour of its own _s functions is not a warning here.
    target_compile_definitions(${target} PRIVATE _CRT_SECURE_NO_WARNINGS)
  else()
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow
                                             -Wnon-virtual-dtor -Wcast-qual -Werror)
  endif()
endfunction()

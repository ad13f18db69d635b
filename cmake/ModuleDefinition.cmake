# The module-definition file (.def) that sets the export table of ostrel-pkcs11.dll.
include_guard(GLOBAL)

# The maker's three extra entry points: the Microsoft C++ name of each (the export name callers
# look up) and the name GCC and Clang give the same C++ function (CK_ULONG is unsigned long).
set(OSTREL_EXTRA_EXPORTS
  "?C_EjectToken@@YAKK@Z=_Z12C_EjectTokenm"
  "?C_GetUnmanagedStructSizeList@@YAKPEAK0@Z=_Z28C_GetUnmanagedStructSizeListPmS_"
  "?C_InteractiveLogin@@YAKK@Z=_Z18C_InteractiveLoginm")

# Writes output from template: the standard names, read from the X-macro of cryptoki_header in
# their function-list order, then the extra names, aliased to GCC's names unless the compiler
# itself uses the Microsoft names (MSVC, clang-cl).
function(ostrel_write_module_definition template cryptoki_header output)
  file(READ "${cryptoki_header}" header)
  # Entries read "    X(C_Initialize, (CK_VOID_PTR pInitArgs))  \", one or more lines each.
  string(REGEX MATCHALL "\n *X\\(C_[A-Za-z]+," entries "${header}")
  set(exports "")
  set(count 0)
  foreach(entry IN LISTS entries)
    string(REGEX REPLACE "^\n *X\\((C_[A-Za-z]+),$" "\\1" name "${entry}")
    string(APPEND exports "    ${name}\n")
    math(EXPR count "${count} + 1")
  endforeach()
  if(NOT count EQUAL 68)
    message(FATAL_ERROR "${cryptoki_header}: found ${count} Cryptoki entry points, not 68")
  endif()

  foreach(extra IN LISTS OSTREL_EXTRA_EXPORTS)
    if(MSVC)
      string(REGEX REPLACE "=.*" "" extra "${extra}")
    endif()
    string(APPEND exports "    ${extra}\n")
  endforeach()

  set(OSTREL_DEF_EXPORTS "${exports}")
  configure_file("${template}" "${output}" @ONLY NEWLINE_STYLE LF)
  # Configure again when the list of entry points changes.
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${cryptoki_header}")
endfunction()

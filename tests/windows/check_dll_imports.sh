#!/bin/sh
# ostrel-pkcs11.dll imports only Windows system DLLs and the device library by its name: the
# GCC, C++ and threads runtimes are linked into it, so nothing has to be shipped beside it.
#
#   check_dll_imports.sh OBJDUMP DLL
set -eu
objdump=$1
dll=$2

imports=$("$objdump" -p "$dll" | sed -n 's/^[[:space:]]*DLL Name: //p')
echo "imports of $(basename "$dll"):" $imports

status=0
printf '%s\n' "$imports" | grep -qx 'OstrelDSCLibrary.dll' || {
    echo "the device library is not imported as OstrelDSCLibrary.dll" >&2
    status=1
}
for name in $imports; do
    case $(printf '%s' "$name" | tr '[:upper:]' '[:lower:]') in
        kernel32.dll | advapi32.dll | msvcrt.dll | ucrtbase.dll | api-ms-win-*.dll) ;;
        ostreldsclibrary.dll) ;;
        *)
            echo "unexpected import: $name" >&2
            status=1
            ;;
    esac
done
exit $status

// The address the current function returns to: an address inside its caller's module.
#pragma once

#if defined(_MSC_VER)
#  include <intrin.h>
#  define QUILLMAR_RETURN_ADDRESS() _ReturnAddress()
#else
#  define QUILLMAR_RETURN_ADDRESS() __builtin_return_address(0)
#endif

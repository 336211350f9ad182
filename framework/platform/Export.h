// Symbol export for the project's shared libraries.
//
// Every library builds with hidden visibility; only what is marked here is seen by a host.
// FRAMEWORK_API marks the stand-in framework's classes, QUILLMAR_API the product's exported
// classes, and QUILLMAR_C_API the product's plain C entry points.
#pragma once

#if defined(_WIN32)
#  define QUILLMAR_DLL_EXPORT __declspec(dllexport)
#  define QUILLMAR_DLL_IMPORT __declspec(dllimport)
#else
#  define QUILLMAR_DLL_EXPORT __attribute__((visibility("default")))
#  define QUILLMAR_DLL_IMPORT __attribute__((visibility("default")))
#endif

#if defined(FRAMEWORK_EXPORTS)
#  define FRAMEWORK_API QUILLMAR_DLL_EXPORT
#else
#  define FRAMEWORK_API QUILLMAR_DLL_IMPORT
#endif

#if defined(QUILLMAR_EXPORTS)
#  define QUILLMAR_API QUILLMAR_DLL_EXPORT
#else
#  define QUILLMAR_API QUILLMAR_DLL_IMPORT
#endif

#define QUILLMAR_C_API extern "C" QUILLMAR_API

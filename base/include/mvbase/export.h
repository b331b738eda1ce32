// Symbol visibility for the base library. Everything is hidden by default;
// public classes and functions carry MVBASE_API.
#pragma once

#if defined(_WIN32)
#if defined(MVBASE_BUILDING)
#define MVBASE_API __declspec(dllexport)
#else
#define MVBASE_API __declspec(dllimport)
#endif
#else
#define MVBASE_API __attribute__((visibility("default")))
#endif

// Class templates whose instances are bases of exported classes: visible like them, so
// that their type information is one across libraries; never imported.
#if defined(_WIN32)
#define MVBASE_TEMPLATE_API
#else
#define MVBASE_TEMPLATE_API __attribute__((visibility("default")))
#endif

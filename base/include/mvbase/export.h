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

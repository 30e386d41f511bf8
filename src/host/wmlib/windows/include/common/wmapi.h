#pragma once

// Marks what wmLib exports: there, and for all others.
#ifdef wmLib_EXPORTS
#define WMLIB_API __declspec(dllexport)
#else
#define WMLIB_API __declspec(dllimport)
#endif

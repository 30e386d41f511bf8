// The JSON library takes every compiler for Windows for Microsoft's: what it uses of that one and
// this one lacks comes first.
#pragma once
#pragma GCC system_header

#include <assert.h>
#include_next <cpprest/details/cpprest_compat.h>
#include <crtdbg.h>
#include <intrin.h>
#include <windows.h>

#undef CPPREST_NOEXCEPT
#undef CPPREST_CONSTEXPR
#define CPPREST_NOEXCEPT noexcept
#define CPPREST_CONSTEXPR constexpr
#ifndef __assume
#define __assume(x) ((x) ? static_cast<void>(0) : __builtin_unreachable())
#endif
#ifndef _ReturnAddress
#define _ReturnAddress() __builtin_return_address(0)
#endif
#undef C_ASSERT
#define C_ASSERT(condition) static_assert(condition)

#include_next <cpprest/json.h>

#pragma once

/// Marks what the library exports, and lets one header serve C17 and C++20.

#define CM_EXPORT __attribute__((visibility("default")))

/// The same for variables. The library is bound to its own, so a host must not link with a copy of them in itself (a copy relocation): where
/// they are weak, a position-independent program reaches them through its table instead.
#if defined(__linux__)
#ifndef __PIC__
#error "compile with -fPIE (the usual default) or -fPIC: a program at a fixed address would see stale copies of the library's variables"
#endif
#define CM_EXPORT_DATA __attribute__((visibility("default"), weak))
#else
#define CM_EXPORT_DATA CM_EXPORT
#endif

/// A private member of an exported class.
#define CM_INTERNAL __attribute__((visibility("hidden")))

#define CM_NORETURN __attribute__((noreturn))

/// CM_CONSTANT is a number that compilers know, in C too, where it has no type of its own.
#ifdef __cplusplus
#define CM_C_BEGIN extern "C" {
#define CM_C_END }
#define CM_CONSTANT(type, name, value) inline constexpr type name = value
#else
#define CM_C_BEGIN
#define CM_C_END
#define CM_CONSTANT(type, name, value) enum { name = value }
#endif

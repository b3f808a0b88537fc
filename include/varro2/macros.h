/**
 * @file macros.h
 * What every public header of libvarro2 opens with.
 *
 * Rules that hold for all functions, unless one says otherwise:
 *  - Objects are made by `_new` or `_copy` and released by `_free`, which accepts NULL.
 *  - Arguments are borrowed: setters copy what they are given, getters lend what the object owns.
 *  - A pointer may be NULL only where the comment says so. Where it may not, the mistake is logged
 *    at critical level and the call does nothing and returns 0, FALSE or NULL; what says that it
 *    aborts ends the process instead.
 *  - Value objects (everything that does not touch the bus) may be used from any thread, one thread
 *    at a time; reading the same object from several threads at once is allowed.
 *  - Texts are UTF-8 by convention and NUL-terminated.
 */
#ifndef VARRO2_MACROS_H
#define VARRO2_MACROS_H

#include <glib-object.h>
#include <glib.h>

/** Marks a function that the shared library exports. */
#define VARRO2_API __attribute__((visibility("default")))

/** No function of the library lets a C++ exception out. */
#ifdef __cplusplus
#define VARRO2_NOEXCEPT noexcept
#else
#define VARRO2_NOEXCEPT
#endif

#endif

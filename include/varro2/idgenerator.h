/**
 * @file idgenerator.h
 * A source of numbers for local declarations and subscription tokens.
 */
#ifndef VARRO2_IDGENERATOR_H
#define VARRO2_IDGENERATOR_H

#include <varro2/macros.h>

G_BEGIN_DECLS

/** Hands out 1, 2, 3, ... and starts again at 1 after 4294967295; never 0. */
typedef struct IdGenerator IdGenerator;

/** @return a new generator, owned by the caller; its first id is 1. */
VARRO2_API IdGenerator *idgenerator_new(void) VARRO2_NOEXCEPT;

/** Frees the generator; no other thread may use it any more. @param idgen may be NULL. */
VARRO2_API void idgenerator_free(IdGenerator *idgen) VARRO2_NOEXCEPT;

/**
 * The next id. Several threads may share a generator. A NULL generator aborts.
 *
 * @return an id other than 0.
 */
VARRO2_API guint32 idgenerator_reserve(IdGenerator *idgen) VARRO2_NOEXCEPT;

/**
 * Gives an id back. It is not handed out again before the numbers have gone round once. Several
 * threads may share a generator. A NULL generator aborts.
 */
VARRO2_API void idgenerator_release(IdGenerator *idgen, guint32 id) VARRO2_NOEXCEPT;

G_END_DECLS

#endif

/**
 * @file commandsource.h
 * Functions queued from any thread and run on the thread that iterates a GLib main context.
 *
 * The commands of one source run one at a time, in the order in which they were queued; one that a
 * running command queues runs after those that already wait. A turn of the main loop runs only the
 * commands that waited when the turn began, so a command that queues itself starves nobody. A
 * command may iterate the main context: no other command of its source runs meanwhile.
 *
 * All functions may be called from any thread.
 */
#ifndef VARRO2_COMMANDSOURCE_H
#define VARRO2_COMMANDSOURCE_H

#include <varro2/macros.h>

G_BEGIN_DECLS

typedef struct CommandSource CommandSource;

/** A command: gets its own data and the source's user data. Runs on the main context's thread. */
typedef void (*CommandSourceFunction)(gpointer data, gpointer user_data);

/** A command with a result, for command_source_run(). Runs on the main context's thread. */
typedef gpointer (*CommandSourceQuery)(gpointer data, gpointer user_data);

/**
 * Makes a source and attaches it to the context.
 * @param context    kept referenced; NULL is the default context
 * @param user_data  handed to every command, never touched; may be NULL
 * @param reserved1  pass 1; not looked at
 * @param reserved2  pass 0; not looked at
 * @return a new source, to be freed with command_source_free()
 */
VARRO2_API CommandSource *command_source_new_full(GMainContext *context, gpointer user_data,
                                                  int reserved1, int reserved2) VARRO2_NOEXCEPT;

/** Queues function (data, user_data) and returns at once. data is handed on untouched and may be
 * NULL; what it points to belongs to the command. */
VARRO2_API void command_source_run_async(CommandSource *source, CommandSourceFunction function,
                                         gpointer data) VARRO2_NOEXCEPT;

/**
 * Runs function (data, user_data) in its turn and waits for its result.
 *
 * On the thread that owns the context (and, while nobody owns it, on the thread that iterated it
 * last or else made the source) the commands already queued run first and then the function, at
 * once, without iterating the context. Inside a command of this source the function runs at once,
 * as a part of that command: the commands that wait come after it. On every other thread the call
 * waits for the thread that iterates the context.
 * @return what function returned; NULL when the source was freed before its turn came.
 */
VARRO2_API gpointer command_source_run(CommandSource *source, CommandSourceQuery function,
                                       gpointer data) VARRO2_NOEXCEPT;

/**
 * Frees the source; NULL is accepted. Meant to be called from inside the last command, which is
 * completed. Commands that still wait are dropped without being run (their data is not freed), and
 * threads waiting in command_source_run() for one of them are released with NULL.
 */
VARRO2_API void command_source_free(CommandSource *source) VARRO2_NOEXCEPT;

G_END_DECLS

#endif

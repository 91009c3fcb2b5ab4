// SPDX-License-Identifier: Apache-2.0
#ifndef ZAFFO_H
#define ZAFFO_H

/// The library in plain C (C11), for programs and bindings in other languages: from the address of
/// a clip to its pictures as BGRA.
///
/// Everything happens on one thread, the main thread: the process's first, or the one that called
/// zaffo_main_adopt(). All functions belong there, except where they say otherwise, and all
/// callbacks come there, from zaffo_main_run() or from inside the call that they belong to. A
/// callback may call anything here, and may release anything, its own request or output too.
///
/// Every object has one owner, the caller that got it, and one function that releases it. Releasing
/// null does nothing; other functions take null for an object that is not there, and give 0. Texts
/// are UTF-8; one that is passed in is copied, one that a callback gets is the library's and is
/// valid until the callback returns, and one that is returned is the caller's, to be released with
/// zaffo_text_release().
///
/// No exception leaves these functions. Where memory runs out they do nothing, and give null, 0 or
/// false.
///
/// Binaries go on running with later libraries of the same soname. What is added there raises
/// ZAFFO_C_VERSION; nothing is taken away or changed.

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#define ZAFFO_C_VERSION 1

#define ZAFFO_C_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/// ZAFFO_C_VERSION of the library that is loaded. Thread: any.
ZAFFO_C_EXPORT int zaffo_c_version(void);

/// @name The main loop
/// A program's own loop polls a descriptor and runs what waits when it is readable.
/// @{

/// Makes the calling thread the main thread. Only for programs whose loop runs on another one than
/// the process's first; before anything else.
ZAFFO_C_EXPORT void zaffo_main_adopt(void);
/// Readable (poll, epoll) whenever there is something to run, timers included. Owned by the
/// library; do not read or close it.
ZAFFO_C_EXPORT int zaffo_main_descriptor(void);
/// Runs what waits now, but not what that asks for, and never waits itself. How much ran, or -1
/// when something was thrown in it.
ZAFFO_C_EXPORT int zaffo_main_run(void);

/// @}
/// @name The pool of players
/// @{

/// A bounded number of players, lent to whoever plays.
typedef struct zaffo_pool zaffo_pool;

/// A pool of at most `most_players` while the program is busy (zaffo_pool_set_busy), and at most
/// `most_idle` otherwise; 0 or less means the usual bounds, 16 and 8. Keep it for as long as videos
/// are shown.
ZAFFO_C_EXPORT zaffo_pool* zaffo_pool_create(int most_players, int most_idle);
/// The players go; what was lent of them does nothing from then on, and what was asked for is never
/// answered.
ZAFFO_C_EXPORT void zaffo_pool_release(zaffo_pool* pool);
/// Whether something urgent is going on, a scroll say. Initially not.
ZAFFO_C_EXPORT void zaffo_pool_set_busy(zaffo_pool* pool, bool busy);
/// Whether local clips get players without sound that cost less. Initially not. A change drops
/// every player.
ZAFFO_C_EXPORT void zaffo_pool_set_fast(zaffo_pool* pool, bool fast);
/// A line for each player, for a person who looks for a fault. The caller's.
ZAFFO_C_EXPORT char* zaffo_pool_describe(const zaffo_pool* pool);

/// Releases a text that was returned. Thread: any.
ZAFFO_C_EXPORT void zaffo_text_release(char* text);

/// @}
/// @name Playing
/// @{

/// One use of a player. Whoever plays the same address and loop shares the player.
typedef struct zaffo_player zaffo_player;
/// A player that was asked for.
typedef struct zaffo_request zaffo_request;

/// What becomes of a clip at its end. An int in the calls, so that its size is known.
enum {
  ZAFFO_LOOP_NONE = 0,     ///< it is played once
  ZAFFO_LOOP_ENDLESS = 1,  ///< it goes on without a gap; what no loop can be made of is played once
};

/// The answer: a player that plays already, which is the receiver's to release, or null and why.
typedef void zaffo_play_callback(zaffo_player* player, const char* error, void* user);

/// Plays the clip at `address`, an absolute URL (file, http, https) or else the path of a file.
/// `callback` is called once: inside the call when the pool holds the clip already, later
/// otherwise; never once the request was released, nor when the pool goes before. Null for no pool,
/// address or callback, or a loop that there is not.
ZAFFO_C_EXPORT zaffo_request* zaffo_play(zaffo_pool* pool, const char* address, int loop,
                                         zaffo_play_callback* callback, void* user);
/// Gives up what was asked for, if it was not answered yet. To be called once for each request.
ZAFFO_C_EXPORT void zaffo_request_release(zaffo_request* request);

/// Gives the player back. Set its rate to 0 before, unless others show the same clip: a player that
/// nobody uses is rewound but not stopped.
ZAFFO_C_EXPORT void zaffo_player_release(zaffo_player* player);
/// 1 plays, 0 stands still.
ZAFFO_C_EXPORT float zaffo_player_rate(const zaffo_player* player);
ZAFFO_C_EXPORT void zaffo_player_set_rate(zaffo_player* player, float rate);
/// Of the sound, 0 to 1.
ZAFFO_C_EXPORT float zaffo_player_volume(const zaffo_player* player);
ZAFFO_C_EXPORT void zaffo_player_set_volume(zaffo_player* player, float volume);
/// Goes to the exact picture at that time, in seconds; ignored unless it is 0 or more.
ZAFFO_C_EXPORT void zaffo_player_seek(zaffo_player* player, double seconds);
/// Where it is, in seconds.
ZAFFO_C_EXPORT double zaffo_player_time(const zaffo_player* player);
/// How long what it plays lasts, all rounds of a loop together, in seconds; -1 when that is not
/// known.
ZAFFO_C_EXPORT double zaffo_player_duration(const zaffo_player* player);

/// @}
/// @name Pictures
/// @{

/// What tells when there is another picture of a player to draw.
typedef struct zaffo_output zaffo_output;
/// A picture, in memory until it is released.
typedef struct zaffo_picture zaffo_picture;

typedef void zaffo_output_callback(void* user);

/// Calls `callback` when the picture to be seen is another one than zaffo_output_picture() gave
/// last, or there is none any more; then not again until that has been called. Never inside this
/// call, nor once the output or the player was released or the pool took the player away. Of two
/// outputs of a player the later one is served. Null for no player or callback.
ZAFFO_C_EXPORT zaffo_output* zaffo_output_attach(zaffo_player* player,
                                                 zaffo_output_callback* callback, void* user);
ZAFFO_C_EXPORT void zaffo_output_release(zaffo_output* output);
/// The picture that is due now, the caller's; null when there is none.
ZAFFO_C_EXPORT zaffo_picture* zaffo_output_picture(zaffo_output* output);

/// Thread: any, as for all that takes a picture.
ZAFFO_C_EXPORT void zaffo_picture_release(zaffo_picture* picture);
/// What it measures upright, in square pixels.
ZAFFO_C_EXPORT int zaffo_picture_width(const zaffo_picture* picture);
ZAFFO_C_EXPORT int zaffo_picture_height(const zaffo_picture* picture);
/// Writes it upright, stretched to `width` by `height`, as opaque BGRA: 4 bytes a pixel, `stride`
/// bytes from one row to the next. False, and nothing is written, when there is nothing to be seen
/// in it or a side is not positive.
ZAFFO_C_EXPORT bool zaffo_picture_convert(const zaffo_picture* picture, uint8_t* bgra, int width,
                                          int height, ptrdiff_t stride);

/// @}
/// @name What the library tells about its work
/// @{

/// May not call zaffo_set_trace(). Thread: any, several at once.
typedef void zaffo_trace_callback(const char* line, void* user);

/// Sends the lines that players write about their work to `callback`; to standard output, as in the
/// beginning, with null. A line that is under way on another thread may still come to the former
/// one. Thread: any.
ZAFFO_C_EXPORT void zaffo_set_trace(zaffo_trace_callback* callback, void* user);

/// @}
/// @name Clips of http and https addresses
/// @{

/// Has each request for `base`, and what lies below it on the same server, carry this field, such
/// as "Cookie", in place of all that were given for `base` before; with a null name, none. False,
/// and nothing changes, where the address is not of the network or the field cannot stand in a
/// request. Thread: any.
ZAFFO_C_EXPORT bool zaffo_set_request_field(const char* base, const char* name, const char* value);

/// Keeps the bytes of clips in a folder, `bytes` of them at most, so that the next start of the
/// program fetches nothing twice; null ends that. A folder that cannot be used is done without.
/// Thread: any.
ZAFFO_C_EXPORT void zaffo_set_cache_folder(const char* path, int64_t bytes);

/// @}

#ifdef __cplusplus
}
#endif

#endif

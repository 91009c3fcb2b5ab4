// SPDX-License-Identifier: Apache-2.0
#include "zaffo-gtk-runtime.h"

#include <glib-unix.h>

static zaffo_pool* pool;
static unsigned users;

static gboolean run_turn(int descriptor, GIOCondition condition, gpointer data) {
  zaffo_main_run();
  return G_SOURCE_CONTINUE;
}

static void attach_main_loop(void) {
  static gboolean is_attached;
  const int descriptor = zaffo_main_descriptor();
  if (is_attached || descriptor < 0) return;
  is_attached = TRUE;
  GSource* source = g_unix_fd_source_new(descriptor, G_IO_IN);
  g_source_set_name(source, "[zaffo] main queue");
  g_source_set_can_recurse(source, TRUE); /* a callback may open a dialogue and wait for it */
  g_source_set_callback(source, G_SOURCE_FUNC(run_turn), NULL, NULL);
  g_source_attach(source, NULL);
  g_source_unref(source);
}

void zaffo_gtk_pool_acquire(void) {
  attach_main_loop();
  if (users++ == 0) pool = zaffo_pool_create(0, 0);
}

zaffo_pool* zaffo_gtk_pool(void) {
  return pool;
}

void zaffo_gtk_pool_release(void) {
  if (--users == 0) zaffo_pool_release(g_steal_pointer(&pool));
}

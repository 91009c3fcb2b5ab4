// SPDX-License-Identifier: Apache-2.0

// A feed in GTK 4: gtk-feed [--each SECONDS] FILE|URL...
//
// A clip to a page; the wheel and the arrow keys turn the pages. With --each they turn by
// themselves, and the program ends after the last.

#include <ZaffoGtk/zaffo-gtk.h>
#include <stdlib.h>

static GtkWidget* pages;
static GMainLoop* loop;

// Turns to the page beside the one that is seen. False where there is none.
static gboolean turn(gboolean forth) {
  GtkWidget* seen = gtk_stack_get_visible_child(GTK_STACK(pages));
  GtkWidget* next = forth ? gtk_widget_get_next_sibling(seen) : gtk_widget_get_prev_sibling(seen);
  if (!next) return FALSE;
  gtk_stack_set_visible_child(GTK_STACK(pages), next);
  return TRUE;
}

static gboolean turn_by_itself(gpointer data) {
  (void)data;
  if (turn(TRUE)) return G_SOURCE_CONTINUE;
  g_main_loop_quit(loop);
  return G_SOURCE_REMOVE;
}

static gboolean scrolled(GtkEventController* scroll, double dx, double dy, gpointer data) {
  (void)scroll, (void)dx, (void)data;
  return dy != 0 && turn(dy > 0);
}

static gboolean key_pressed(GtkEventController* keys, guint key, guint code, GdkModifierType state,
                            gpointer data) {
  (void)keys, (void)code, (void)state, (void)data;
  return (key == GDK_KEY_Down && turn(TRUE)) || (key == GDK_KEY_Up && turn(FALSE));
}

static void failed(ZaffoGtkPaintable* clip, const char* text, gpointer data) {
  (void)data;
  g_printerr("%s: %s\n", zaffo_gtk_paintable_get_uri(clip), text);
}

static void measured(ZaffoGtkPaintable* clip, gpointer data) {
  (void)data;
  const int width = gdk_paintable_get_intrinsic_width(GDK_PAINTABLE(clip));
  const int height = gdk_paintable_get_intrinsic_height(GDK_PAINTABLE(clip));
  if (width) g_print("%s: %dx%d\n", zaffo_gtk_paintable_get_uri(clip), width, height);
}

static void add_page(const char* uri) {
  GtkWidget* video = zaffo_gtk_video_new(uri);
  ZaffoGtkPaintable* clip = zaffo_gtk_video_get_paintable(ZAFFO_GTK_VIDEO(video));
  g_signal_connect(clip, "failed", G_CALLBACK(failed), NULL);
  g_signal_connect(clip, "invalidate-size", G_CALLBACK(measured), NULL);
  gtk_stack_add_child(GTK_STACK(pages), video);
}

int main(int argc, char** argv) {
  int each = 0;
  const GOptionEntry options[] = {
      {"each", 0, 0, G_OPTION_ARG_INT, &each, "Turn the page every so often", "SECONDS"}, {0}};
  GOptionContext* context = g_option_context_new("FILE|URL...");
  g_option_context_add_main_entries(context, options, NULL);
  const gboolean is_understood = g_option_context_parse(context, &argc, &argv, NULL) && argc > 1;
  g_option_context_free(context);
  if (!is_understood || !gtk_init_check()) {
    g_printerr("usage: gtk-feed [--each SECONDS] FILE|URL..., on a display\n");
    return 2;
  }

  loop = g_main_loop_new(NULL, FALSE);
  pages = gtk_stack_new();
  gtk_stack_set_transition_type(GTK_STACK(pages), GTK_STACK_TRANSITION_TYPE_SLIDE_UP_DOWN);
  for (int i = 1; i < argc; ++i) add_page(argv[i]);

  GtkWidget* window = gtk_window_new();
  gtk_window_set_default_size(GTK_WINDOW(window), 360, 640);
  gtk_window_set_child(GTK_WINDOW(window), pages);
  GtkEventController* scroll = gtk_event_controller_scroll_new(
      GTK_EVENT_CONTROLLER_SCROLL_BOTH_AXES | GTK_EVENT_CONTROLLER_SCROLL_DISCRETE);
  g_signal_connect(scroll, "scroll", G_CALLBACK(scrolled), NULL);
  gtk_widget_add_controller(window, scroll);
  GtkEventController* keys = gtk_event_controller_key_new();
  g_signal_connect(keys, "key-pressed", G_CALLBACK(key_pressed), NULL);
  gtk_widget_add_controller(window, keys);
  g_signal_connect_swapped(window, "destroy", G_CALLBACK(g_main_loop_quit), loop);
  if (each > 0) g_timeout_add_seconds((guint)each, turn_by_itself, NULL);

  gtk_window_present(GTK_WINDOW(window));
  g_main_loop_run(loop);
  return 0;
}

// SPDX-License-Identifier: Apache-2.0
#ifndef ZAFFO_GTK_H
#define ZAFFO_GTK_H

/*
 * Clips in GTK 4: a widget that shows one, and the paintable underneath. All of it belongs to the
 * thread that GTK runs on, which has to be the process's first, or the one that called
 * zaffo_main_adopt(). The library's work is run by the default main context; nothing has to be
 * called for it.
 *
 * Players come from one pool, which lives as long as any paintable and has the usual bounds: at
 * most 8 clips play at once.
 */

#include <gtk/gtk.h>

#define ZAFFO_GTK_EXPORT __attribute__((visibility("default")))

G_BEGIN_DECLS

#define ZAFFO_GTK_TYPE_PAINTABLE (zaffo_gtk_paintable_get_type())

/**
 * ZaffoGtkPaintable:
 *
 * The pictures of a clip, with its sound, as a #GdkPaintable for any widget that draws one. Its
 * intrinsic size is that of the clip, upright and in square pixels, and 0 until the first picture
 * is there.
 *
 * A picture is converted when it is drawn, into a texture of the size drawn, or of its own size
 * where that is smaller: what is not drawn costs nothing, and what is enlarged is enlarged by GTK.
 *
 * Two paintables of one address and loop have one player between them, whose pictures go to the
 * later: show the same clip twice by giving one paintable to two widgets.
 */
ZAFFO_GTK_EXPORT
G_DECLARE_FINAL_TYPE(ZaffoGtkPaintable, zaffo_gtk_paintable, ZAFFO_GTK, PAINTABLE, GObject)

/**
 * zaffo_gtk_paintable_new:
 * @uri: (nullable): an absolute URL (file, http, https) or else the path of a file
 *
 * It plays, in a loop, until it is told otherwise.
 *
 * Returns: (transfer full): a new paintable
 */
ZAFFO_GTK_EXPORT ZaffoGtkPaintable* zaffo_gtk_paintable_new(const char* uri);

/**
 * zaffo_gtk_paintable_get_uri:
 *
 * Returns: (transfer none) (nullable): what it plays
 */
ZAFFO_GTK_EXPORT const char* zaffo_gtk_paintable_get_uri(ZaffoGtkPaintable* self);
/**
 * zaffo_gtk_paintable_set_uri:
 * @uri: (nullable): an absolute URL (file, http, https) or else the path of a file
 *
 * Plays another clip, from its beginning.
 */
ZAFFO_GTK_EXPORT void zaffo_gtk_paintable_set_uri(ZaffoGtkPaintable* self, const char* uri);

/**
 * zaffo_gtk_paintable_get_playing:
 *
 * Returns: whether it plays, or will as soon as it can; true of a clip at its end, too
 */
ZAFFO_GTK_EXPORT gboolean zaffo_gtk_paintable_get_playing(ZaffoGtkPaintable* self);
ZAFFO_GTK_EXPORT void zaffo_gtk_paintable_set_playing(ZaffoGtkPaintable* self, gboolean playing);

/**
 * zaffo_gtk_paintable_get_loop:
 *
 * Returns: whether the clip goes on at its end, without a gap; initially so
 */
ZAFFO_GTK_EXPORT gboolean zaffo_gtk_paintable_get_loop(ZaffoGtkPaintable* self);
/**
 * zaffo_gtk_paintable_set_loop:
 *
 * A change begins the clip anew.
 */
ZAFFO_GTK_EXPORT void zaffo_gtk_paintable_set_loop(ZaffoGtkPaintable* self, gboolean loop);

/**
 * zaffo_gtk_paintable_get_volume:
 *
 * Returns: that of the sound, 0 to 1
 */
ZAFFO_GTK_EXPORT double zaffo_gtk_paintable_get_volume(ZaffoGtkPaintable* self);
ZAFFO_GTK_EXPORT void zaffo_gtk_paintable_set_volume(ZaffoGtkPaintable* self, double volume);

/**
 * zaffo_gtk_paintable_get_active:
 *
 * Returns: whether it has a player, or asks for one; initially so
 */
ZAFFO_GTK_EXPORT gboolean zaffo_gtk_paintable_get_active(ZaffoGtkPaintable* self);
/**
 * zaffo_gtk_paintable_set_active:
 *
 * One that is not active has no picture and no sound. The player goes back to the pool, which keeps
 * it ready for a while: active again soon, the clip is there at once, at its beginning. A
 * #ZaffoGtkVideo sees to this by itself.
 */
ZAFFO_GTK_EXPORT void zaffo_gtk_paintable_set_active(ZaffoGtkPaintable* self, gboolean active);

/**
 * zaffo_gtk_paintable_get_scale:
 *
 * Returns: the device's pixels to one of the sizes drawn, initially 1
 */
ZAFFO_GTK_EXPORT int zaffo_gtk_paintable_get_scale(ZaffoGtkPaintable* self);
/**
 * zaffo_gtk_paintable_set_scale:
 *
 * For widgets that are none of this library: the value of #GtkWidget:scale-factor.
 */
ZAFFO_GTK_EXPORT void zaffo_gtk_paintable_set_scale(ZaffoGtkPaintable* self, int scale);

/**
 * zaffo_gtk_paintable_play:
 *
 * A clip at its end needs a seek to the beginning as well.
 */
ZAFFO_GTK_EXPORT void zaffo_gtk_paintable_play(ZaffoGtkPaintable* self);
ZAFFO_GTK_EXPORT void zaffo_gtk_paintable_pause(ZaffoGtkPaintable* self);
/**
 * zaffo_gtk_paintable_seek:
 * @seconds: where to; ignored unless it is 0 or more
 *
 * Goes to the exact picture at that time, as soon as there is a player. The rounds of a loop follow
 * one another in time.
 */
ZAFFO_GTK_EXPORT void zaffo_gtk_paintable_seek(ZaffoGtkPaintable* self, double seconds);
/**
 * zaffo_gtk_paintable_get_position:
 *
 * Returns: where it is, in seconds; 0 without a player
 */
ZAFFO_GTK_EXPORT double zaffo_gtk_paintable_get_position(ZaffoGtkPaintable* self);
/**
 * zaffo_gtk_paintable_get_duration:
 *
 * Returns: how long it lasts, all rounds of a loop together, in seconds; 0 without a player, and -1
 *   when that is not known
 */
ZAFFO_GTK_EXPORT double zaffo_gtk_paintable_get_duration(ZaffoGtkPaintable* self);

#define ZAFFO_GTK_TYPE_VIDEO (zaffo_gtk_video_get_type())

/**
 * ZaffoGtkVideo:
 *
 * A widget that shows a clip as large as it fits, in its own proportions. It has a player only
 * while it is mapped: a page that is not shown, or a window that is closed, stops the clip, which
 * begins anew when it is seen again. Everything else is done with its paintable.
 */
ZAFFO_GTK_EXPORT
G_DECLARE_FINAL_TYPE(ZaffoGtkVideo, zaffo_gtk_video, ZAFFO_GTK, VIDEO, GtkWidget)

/**
 * zaffo_gtk_video_new:
 * @uri: (nullable): an absolute URL (file, http, https) or else the path of a file
 *
 * Returns: (transfer floating): a new widget
 */
ZAFFO_GTK_EXPORT GtkWidget* zaffo_gtk_video_new(const char* uri);

/**
 * zaffo_gtk_video_get_uri:
 *
 * Returns: (transfer none) (nullable): what it shows
 */
ZAFFO_GTK_EXPORT const char* zaffo_gtk_video_get_uri(ZaffoGtkVideo* self);
/**
 * zaffo_gtk_video_set_uri:
 * @uri: (nullable): an absolute URL (file, http, https) or else the path of a file
 */
ZAFFO_GTK_EXPORT void zaffo_gtk_video_set_uri(ZaffoGtkVideo* self, const char* uri);

/**
 * zaffo_gtk_video_get_paintable:
 *
 * Returns: (transfer none): the paintable, always the same one
 */
ZAFFO_GTK_EXPORT ZaffoGtkPaintable* zaffo_gtk_video_get_paintable(ZaffoGtkVideo* self);

G_END_DECLS

#endif

// SPDX-License-Identifier: Apache-2.0
#include <math.h>

#include "zaffo-gtk-runtime.h"
#include "zaffo-gtk.h"

struct _ZaffoGtkPaintable {
  GObject parent;

  char* uri;
  gboolean is_playing, is_looping, is_active;
  double volume;
  int scale;
  double start; /* where to go once there is a player; negative for the beginning */

  zaffo_request* request; /* answered or not; each ends with unload() */
  zaffo_player* player;
  zaffo_output* output;

  gboolean is_measured; /* whether the clip that is played said how large it is */
  int width, height;    /* of the clip; 0 until its first picture */
  gboolean is_outdated; /* whether another picture is due than the one held */
  zaffo_picture* picture;
  GdkTexture* texture; /* of the picture held, as it was drawn last */
};

enum { PROP_0, PROP_URI, PROP_PLAYING, PROP_LOOP, PROP_VOLUME, PROP_ACTIVE, PROP_SCALE, N_PROPS };
static GParamSpec* properties[N_PROPS];
static guint failed_signal;

static void paintable_init(GdkPaintableInterface* interface);

G_DEFINE_FINAL_TYPE_WITH_CODE(ZaffoGtkPaintable, zaffo_gtk_paintable, G_TYPE_OBJECT,
                              G_IMPLEMENT_INTERFACE(GDK_TYPE_PAINTABLE, paintable_init))

/* The player */

static void set_size(ZaffoGtkPaintable* self, int width, int height) {
  if (width == self->width && height == self->height) return;
  self->width = width;
  self->height = height;
  gdk_paintable_invalidate_size(GDK_PAINTABLE(self));
}

static void take_picture(ZaffoGtkPaintable* self) {
  if (!self->is_outdated) return;
  self->is_outdated = FALSE;
  g_clear_object(&self->texture);
  zaffo_picture_release(self->picture);
  self->picture = zaffo_output_picture(self->output);
}

/* Does not take the picture once the size is known: what is never drawn is told of no other. */
static void picture_changed(void* user) {
  ZaffoGtkPaintable* self = g_object_ref(user);
  self->is_outdated = TRUE;
  if (!self->is_measured) {
    self->is_measured = TRUE;
    take_picture(self);
    set_size(self, zaffo_picture_width(self->picture), zaffo_picture_height(self->picture));
  }
  gdk_paintable_invalidate_contents(GDK_PAINTABLE(self));
  g_object_unref(self);
}

/* Emits nothing. */
static void release_player(ZaffoGtkPaintable* self) {
  zaffo_request_release(g_steal_pointer(&self->request));
  zaffo_output_release(g_steal_pointer(&self->output));
  zaffo_player_set_rate(self->player, 0);
  zaffo_player_release(g_steal_pointer(&self->player));
  zaffo_picture_release(g_steal_pointer(&self->picture));
  g_clear_object(&self->texture);
  self->is_measured = self->is_outdated = FALSE;
}

static void unload(ZaffoGtkPaintable* self) {
  release_player(self);
  self->start = -1;
  gdk_paintable_invalidate_contents(GDK_PAINTABLE(self));
}

static void fail(ZaffoGtkPaintable* self, const char* text) {
  g_object_ref(self);
  release_player(self);
  g_signal_emit(self, failed_signal, 0, text);
  g_object_unref(self);
}

static void answered(zaffo_player* player, const char* error, void* user) {
  ZaffoGtkPaintable* self = user;
  if (!player) {
    fail(self, error);
    return;
  }
  self->player = player;
  zaffo_player_set_volume(player, (float)self->volume);
  if (!self->is_playing) zaffo_player_set_rate(player, 0);
  if (self->start >= 0) zaffo_player_seek(player, self->start);
  self->start = -1;
  self->output = zaffo_output_attach(player, picture_changed, self);
}

static void load(ZaffoGtkPaintable* self) {
  if (!self->is_active || !self->uri || self->request) return;
  /* Answered inside the call at most with a player, which emits nothing. */
  self->request =
      zaffo_play(zaffo_gtk_pool(), self->uri,
                 self->is_looping ? ZAFFO_LOOP_ENDLESS : ZAFFO_LOOP_NONE, answered, self);
}

/* The pictures */

/* How large the texture has to be for the size drawn: no larger than the picture, which GTK
 * enlarges for less. */
static void fit_texture(ZaffoGtkPaintable* self, double drawn_width, double drawn_height,
                        int* width, int* height) {
  *width = zaffo_picture_width(self->picture);
  *height = zaffo_picture_height(self->picture);
  if (drawn_width >= *width || drawn_height >= *height) return;
  *width = MAX(1, (int)ceil(drawn_width));
  *height = MAX(1, (int)ceil(drawn_height));
}

static GdkTexture* make_texture(const zaffo_picture* picture, int width, int height) {
  if (width <= 0 || height <= 0) return NULL;
  const gsize stride = (gsize)4 * (gsize)width, size = stride * (gsize)height;
  uint8_t* pixels = g_try_malloc(size);
  if (!pixels || !zaffo_picture_convert(picture, pixels, width, height, (ptrdiff_t)stride)) {
    g_free(pixels);
    return NULL;
  }
  GBytes* bytes = g_bytes_new_take(pixels, size);
  GdkTexture* texture =
      gdk_memory_texture_new(width, height, GDK_MEMORY_B8G8R8A8_PREMULTIPLIED, bytes, stride);
  g_bytes_unref(bytes);
  return texture;
}

static void update_texture(ZaffoGtkPaintable* self, double drawn_width, double drawn_height) {
  int width = 0, height = 0;
  take_picture(self);
  fit_texture(self, drawn_width, drawn_height, &width, &height);
  if (self->texture && gdk_texture_get_width(self->texture) == width &&
      gdk_texture_get_height(self->texture) == height) {
    return;
  }
  g_clear_object(&self->texture);
  self->texture = make_texture(self->picture, width, height);
}

static void snapshot_picture(GdkPaintable* paintable, GdkSnapshot* snapshot, double width,
                             double height) {
  ZaffoGtkPaintable* self = ZAFFO_GTK_PAINTABLE(paintable);
  update_texture(self, width * self->scale, height * self->scale);
  if (!self->texture) return;
  gtk_snapshot_append_texture(snapshot, self->texture,
                              &GRAPHENE_RECT_INIT(0, 0, (float)width, (float)height));
}

static GdkPaintable* get_current_image(GdkPaintable* paintable) {
  ZaffoGtkPaintable* self = ZAFFO_GTK_PAINTABLE(paintable);
  take_picture(self);
  GdkTexture* texture = make_texture(self->picture, zaffo_picture_width(self->picture),
                                     zaffo_picture_height(self->picture));
  return texture ? GDK_PAINTABLE(texture) : gdk_paintable_new_empty(self->width, self->height);
}

static int get_intrinsic_width(GdkPaintable* paintable) {
  return ZAFFO_GTK_PAINTABLE(paintable)->width;
}

static int get_intrinsic_height(GdkPaintable* paintable) {
  return ZAFFO_GTK_PAINTABLE(paintable)->height;
}

static void paintable_init(GdkPaintableInterface* interface) {
  interface->snapshot = snapshot_picture;
  interface->get_current_image = get_current_image;
  interface->get_intrinsic_width = get_intrinsic_width;
  interface->get_intrinsic_height = get_intrinsic_height;
}

/* What applications call */

ZaffoGtkPaintable* zaffo_gtk_paintable_new(const char* uri) {
  return g_object_new(ZAFFO_GTK_TYPE_PAINTABLE, "uri", uri, NULL);
}

const char* zaffo_gtk_paintable_get_uri(ZaffoGtkPaintable* self) {
  g_return_val_if_fail(ZAFFO_GTK_IS_PAINTABLE(self), NULL);
  return self->uri;
}

void zaffo_gtk_paintable_set_uri(ZaffoGtkPaintable* self, const char* uri) {
  g_return_if_fail(ZAFFO_GTK_IS_PAINTABLE(self));
  if (g_strcmp0(uri, self->uri) == 0) return;
  char* former = self->uri;
  self->uri = g_strdup(uri);
  g_free(former);
  unload(self);
  set_size(self, 0, 0);
  load(self);
  g_object_notify_by_pspec(G_OBJECT(self), properties[PROP_URI]);
}

gboolean zaffo_gtk_paintable_get_playing(ZaffoGtkPaintable* self) {
  g_return_val_if_fail(ZAFFO_GTK_IS_PAINTABLE(self), FALSE);
  return self->is_playing;
}

void zaffo_gtk_paintable_set_playing(ZaffoGtkPaintable* self, gboolean playing) {
  g_return_if_fail(ZAFFO_GTK_IS_PAINTABLE(self));
  zaffo_player_set_rate(self->player, playing ? 1 : 0);
  if (!playing == !self->is_playing) return;
  self->is_playing = playing != FALSE;
  g_object_notify_by_pspec(G_OBJECT(self), properties[PROP_PLAYING]);
}

gboolean zaffo_gtk_paintable_get_loop(ZaffoGtkPaintable* self) {
  g_return_val_if_fail(ZAFFO_GTK_IS_PAINTABLE(self), FALSE);
  return self->is_looping;
}

void zaffo_gtk_paintable_set_loop(ZaffoGtkPaintable* self, gboolean loop) {
  g_return_if_fail(ZAFFO_GTK_IS_PAINTABLE(self));
  if (!loop == !self->is_looping) return;
  self->is_looping = loop != FALSE;
  unload(self);
  load(self);
  g_object_notify_by_pspec(G_OBJECT(self), properties[PROP_LOOP]);
}

double zaffo_gtk_paintable_get_volume(ZaffoGtkPaintable* self) {
  g_return_val_if_fail(ZAFFO_GTK_IS_PAINTABLE(self), 0);
  return self->volume;
}

void zaffo_gtk_paintable_set_volume(ZaffoGtkPaintable* self, double volume) {
  g_return_if_fail(ZAFFO_GTK_IS_PAINTABLE(self));
  volume = volume > 0 ? MIN(volume, 1) : 0;
  if (volume == self->volume) return;
  self->volume = volume;
  zaffo_player_set_volume(self->player, (float)volume);
  g_object_notify_by_pspec(G_OBJECT(self), properties[PROP_VOLUME]);
}

gboolean zaffo_gtk_paintable_get_active(ZaffoGtkPaintable* self) {
  g_return_val_if_fail(ZAFFO_GTK_IS_PAINTABLE(self), FALSE);
  return self->is_active;
}

void zaffo_gtk_paintable_set_active(ZaffoGtkPaintable* self, gboolean active) {
  g_return_if_fail(ZAFFO_GTK_IS_PAINTABLE(self));
  if (!active == !self->is_active) return;
  self->is_active = active != FALSE;
  if (active) {
    load(self);
  } else {
    unload(self);
  }
  g_object_notify_by_pspec(G_OBJECT(self), properties[PROP_ACTIVE]);
}

int zaffo_gtk_paintable_get_scale(ZaffoGtkPaintable* self) {
  g_return_val_if_fail(ZAFFO_GTK_IS_PAINTABLE(self), 1);
  return self->scale;
}

void zaffo_gtk_paintable_set_scale(ZaffoGtkPaintable* self, int scale) {
  g_return_if_fail(ZAFFO_GTK_IS_PAINTABLE(self) && scale >= 1);
  if (scale == self->scale) return;
  self->scale = scale;
  gdk_paintable_invalidate_contents(GDK_PAINTABLE(self));
  g_object_notify_by_pspec(G_OBJECT(self), properties[PROP_SCALE]);
}

void zaffo_gtk_paintable_play(ZaffoGtkPaintable* self) {
  zaffo_gtk_paintable_set_playing(self, TRUE);
}

void zaffo_gtk_paintable_pause(ZaffoGtkPaintable* self) {
  zaffo_gtk_paintable_set_playing(self, FALSE);
}

void zaffo_gtk_paintable_seek(ZaffoGtkPaintable* self, double seconds) {
  g_return_if_fail(ZAFFO_GTK_IS_PAINTABLE(self));
  if (!isfinite(seconds) || seconds < 0) return;
  if (self->player) {
    zaffo_player_seek(self->player, seconds);
  } else {
    self->start = seconds;
  }
}

double zaffo_gtk_paintable_get_position(ZaffoGtkPaintable* self) {
  g_return_val_if_fail(ZAFFO_GTK_IS_PAINTABLE(self), 0);
  return zaffo_player_time(self->player);
}

double zaffo_gtk_paintable_get_duration(ZaffoGtkPaintable* self) {
  g_return_val_if_fail(ZAFFO_GTK_IS_PAINTABLE(self), 0);
  return zaffo_player_duration(self->player);
}

/* The object */

static void get_property(GObject* object, guint id, GValue* value, GParamSpec* spec) {
  ZaffoGtkPaintable* self = ZAFFO_GTK_PAINTABLE(object);
  switch (id) {
    case PROP_URI:
      g_value_set_string(value, self->uri);
      break;
    case PROP_PLAYING:
      g_value_set_boolean(value, self->is_playing);
      break;
    case PROP_LOOP:
      g_value_set_boolean(value, self->is_looping);
      break;
    case PROP_VOLUME:
      g_value_set_double(value, self->volume);
      break;
    case PROP_ACTIVE:
      g_value_set_boolean(value, self->is_active);
      break;
    case PROP_SCALE:
      g_value_set_int(value, self->scale);
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

static void set_property(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
  ZaffoGtkPaintable* self = ZAFFO_GTK_PAINTABLE(object);
  switch (id) {
    case PROP_URI:
      zaffo_gtk_paintable_set_uri(self, g_value_get_string(value));
      break;
    case PROP_PLAYING:
      zaffo_gtk_paintable_set_playing(self, g_value_get_boolean(value));
      break;
    case PROP_LOOP:
      zaffo_gtk_paintable_set_loop(self, g_value_get_boolean(value));
      break;
    case PROP_VOLUME:
      zaffo_gtk_paintable_set_volume(self, g_value_get_double(value));
      break;
    case PROP_ACTIVE:
      zaffo_gtk_paintable_set_active(self, g_value_get_boolean(value));
      break;
    case PROP_SCALE:
      zaffo_gtk_paintable_set_scale(self, g_value_get_int(value));
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

static void dispose(GObject* object) {
  ZaffoGtkPaintable* self = ZAFFO_GTK_PAINTABLE(object);
  self->is_active = FALSE;
  release_player(self);
  G_OBJECT_CLASS(zaffo_gtk_paintable_parent_class)->dispose(object);
}

static void finalize(GObject* object) {
  g_free(ZAFFO_GTK_PAINTABLE(object)->uri);
  zaffo_gtk_pool_release();
  G_OBJECT_CLASS(zaffo_gtk_paintable_parent_class)->finalize(object);
}

static void zaffo_gtk_paintable_init(ZaffoGtkPaintable* self) {
  zaffo_gtk_pool_acquire();
  self->is_playing = self->is_looping = self->is_active = TRUE;
  self->volume = 1;
  self->scale = 1;
  self->start = -1;
}

static void zaffo_gtk_paintable_class_init(ZaffoGtkPaintableClass* class) {
  GObjectClass* object = G_OBJECT_CLASS(class);
  object->get_property = get_property;
  object->set_property = set_property;
  object->dispose = dispose;
  object->finalize = finalize;

  const GParamFlags flags = G_PARAM_READWRITE | G_PARAM_EXPLICIT_NOTIFY | G_PARAM_STATIC_STRINGS;
  properties[PROP_URI] = g_param_spec_string("uri", NULL, NULL, NULL, flags);
  properties[PROP_PLAYING] = g_param_spec_boolean("playing", NULL, NULL, TRUE, flags);
  properties[PROP_LOOP] = g_param_spec_boolean("loop", NULL, NULL, TRUE, flags);
  properties[PROP_VOLUME] = g_param_spec_double("volume", NULL, NULL, 0, 1, 1, flags);
  properties[PROP_ACTIVE] = g_param_spec_boolean("active", NULL, NULL, TRUE, flags);
  properties[PROP_SCALE] = g_param_spec_int("scale", NULL, NULL, 1, G_MAXINT, 1, flags);
  g_object_class_install_properties(object, N_PROPS, properties);

  /**
   * ZaffoGtkPaintable::failed:
   * @self: the paintable
   * @text: what is wrong, for a person to read
   *
   * There is nothing to be played at the address. It is tried again when the paintable becomes
   * active again.
   */
  failed_signal = g_signal_new("failed", ZAFFO_GTK_TYPE_PAINTABLE, G_SIGNAL_RUN_LAST, 0, NULL, NULL,
                               NULL, G_TYPE_NONE, 1, G_TYPE_STRING);
}

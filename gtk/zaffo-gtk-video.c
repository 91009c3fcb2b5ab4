// SPDX-License-Identifier: Apache-2.0
#include "zaffo-gtk.h"

struct _ZaffoGtkVideo {
  GtkWidget parent;
  ZaffoGtkPaintable* paintable;
  GtkWidget* picture; /* the only child, which fits the paintable into what room there is */
};

enum { PROP_0, PROP_URI, PROP_PAINTABLE, N_PROPS };
static GParamSpec* properties[N_PROPS];

G_DEFINE_FINAL_TYPE(ZaffoGtkVideo, zaffo_gtk_video, GTK_TYPE_WIDGET)

GtkWidget* zaffo_gtk_video_new(const char* uri) {
  return g_object_new(ZAFFO_GTK_TYPE_VIDEO, "uri", uri, NULL);
}

const char* zaffo_gtk_video_get_uri(ZaffoGtkVideo* self) {
  g_return_val_if_fail(ZAFFO_GTK_IS_VIDEO(self), NULL);
  return zaffo_gtk_paintable_get_uri(self->paintable);
}

void zaffo_gtk_video_set_uri(ZaffoGtkVideo* self, const char* uri) {
  g_return_if_fail(ZAFFO_GTK_IS_VIDEO(self));
  zaffo_gtk_paintable_set_uri(self->paintable, uri);
}

ZaffoGtkPaintable* zaffo_gtk_video_get_paintable(ZaffoGtkVideo* self) {
  g_return_val_if_fail(ZAFFO_GTK_IS_VIDEO(self), NULL);
  return self->paintable;
}

static void map(GtkWidget* widget) {
  GTK_WIDGET_CLASS(zaffo_gtk_video_parent_class)->map(widget);
  zaffo_gtk_paintable_set_active(ZAFFO_GTK_VIDEO(widget)->paintable, TRUE);
}

static void unmap(GtkWidget* widget) {
  zaffo_gtk_paintable_set_active(ZAFFO_GTK_VIDEO(widget)->paintable, FALSE);
  GTK_WIDGET_CLASS(zaffo_gtk_video_parent_class)->unmap(widget);
}

static void uri_changed(ZaffoGtkVideo* self) {
  g_object_notify_by_pspec(G_OBJECT(self), properties[PROP_URI]);
}

static void scale_changed(ZaffoGtkVideo* self) {
  zaffo_gtk_paintable_set_scale(self->paintable, gtk_widget_get_scale_factor(GTK_WIDGET(self)));
}

static void get_property(GObject* object, guint id, GValue* value, GParamSpec* spec) {
  ZaffoGtkVideo* self = ZAFFO_GTK_VIDEO(object);
  switch (id) {
    case PROP_URI:
      g_value_set_string(value, zaffo_gtk_video_get_uri(self));
      break;
    case PROP_PAINTABLE:
      g_value_set_object(value, self->paintable);
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

static void set_property(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
  if (id == PROP_URI) {
    zaffo_gtk_video_set_uri(ZAFFO_GTK_VIDEO(object), g_value_get_string(value));
  } else {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

static void dispose(GObject* object) {
  g_clear_pointer(&ZAFFO_GTK_VIDEO(object)->picture, gtk_widget_unparent);
  G_OBJECT_CLASS(zaffo_gtk_video_parent_class)->dispose(object);
}

static void finalize(GObject* object) {
  g_object_unref(ZAFFO_GTK_VIDEO(object)->paintable);
  G_OBJECT_CLASS(zaffo_gtk_video_parent_class)->finalize(object);
}

static void zaffo_gtk_video_init(ZaffoGtkVideo* self) {
  self->paintable = g_object_new(ZAFFO_GTK_TYPE_PAINTABLE, "active", FALSE, NULL);
  self->picture = gtk_picture_new_for_paintable(GDK_PAINTABLE(self->paintable));
  gtk_widget_set_parent(self->picture, GTK_WIDGET(self));
  scale_changed(self);
  g_signal_connect(self, "notify::scale-factor", G_CALLBACK(scale_changed), NULL);
  g_signal_connect_object(self->paintable, "notify::uri", G_CALLBACK(uri_changed), self,
                          G_CONNECT_SWAPPED);
}

static void zaffo_gtk_video_class_init(ZaffoGtkVideoClass* class) {
  GObjectClass* object = G_OBJECT_CLASS(class);
  object->get_property = get_property;
  object->set_property = set_property;
  object->dispose = dispose;
  object->finalize = finalize;

  GtkWidgetClass* widget = GTK_WIDGET_CLASS(class);
  widget->map = map;
  widget->unmap = unmap;
  gtk_widget_class_set_layout_manager_type(widget, GTK_TYPE_BIN_LAYOUT);

  properties[PROP_URI] =
      g_param_spec_string("uri", NULL, NULL, NULL,
                          G_PARAM_READWRITE | G_PARAM_EXPLICIT_NOTIFY | G_PARAM_STATIC_STRINGS);
  properties[PROP_PAINTABLE] = g_param_spec_object(
      "paintable", NULL, NULL, ZAFFO_GTK_TYPE_PAINTABLE, G_PARAM_READABLE | G_PARAM_STATIC_STRINGS);
  g_object_class_install_properties(object, N_PROPS, properties);
}

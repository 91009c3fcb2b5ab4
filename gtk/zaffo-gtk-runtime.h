// SPDX-License-Identifier: Apache-2.0
#ifndef ZAFFO_GTK_RUNTIME_H
#define ZAFFO_GTK_RUNTIME_H

/* What all paintables share. */

#include <ZaffoPlayback/zaffo.h>
#include <glib.h>

G_BEGIN_DECLS

/* The pool lives until it has been released as often as it was acquired. The first call also has
 * the default main context run the library's work, from then on for good: what is torn down later
 * is work as well. */
void zaffo_gtk_pool_acquire(void);
/* The pool, or null where nobody has acquired it. */
zaffo_pool* zaffo_gtk_pool(void);
void zaffo_gtk_pool_release(void);

G_END_DECLS

#endif

#pragma once

#include <gio/gio.h>

#include "hosts/common/host_extension.h"
#include "platform/linux/glib_handles.h"
#include "platform/linux/guard.h"

namespace tervano {

// Starts the extension for a menu provider and calls `update` on it whenever other menus may be
// due, for as long as the object lives. For an instance initialiser; never throws.
inline void updateOnChanges(GObject* provider, HostExtension::Icons icons,
                            void (*update)(GObject* provider)) {
  guarded("a menu provider", [&] {
    auto* const extension = HostExtension::shared(icons);
    if (extension == nullptr) return;
    // As long as the extension, that is, for ever.
    auto* const reference = new GWeakRef;
    g_weak_ref_init(reference, provider);
    extension->observeChanges([reference, update] {
      const GObjectPtr<GObject> living(static_cast<GObject*>(g_weak_ref_get(reference)));
      if (living != nullptr) update(living.get());
    });
  });
}

}  // namespace tervano

#pragma once

namespace tervano {

// What the processes of the product agree on: the application group whose container they share, the
// message directory in it, and the identifiers of the two messages, both sent without an object.
inline constexpr char kApplicationGroupIdentifier[] = "Q4T7N2XR8K.com.vessok.tervano";
inline constexpr char kWormholeDirectory[] = "wormhole";
// The action list was saved.
inline constexpr char kActionsDidChangeNotification[] = "TVDidChangeNotification";
// A preference was set.
inline constexpr char kUserDefaultsDidChangeNotification[] = "NSUserDefaultsDidChangeNotification";

}  // namespace tervano

// Whether the desktop prefers a dark look: the settings portal is asked over D-Bus, and where it
// has no answer, GTK's settings are. Interface thread only. No failure is reported: without a bus,
// a portal or an answer in time the look is light, and there are no live changes.

#pragma once

#include <functional>

namespace desktop_theme {

// Waits for the bus and the portal, for at most 500 ms together.
[[nodiscard]] bool prefers_dark();

// Calls back on the main loop whenever the preference has changed; what it is now is to be asked of
// prefers_dark(). A second callback replaces the first; an empty one ends the watch. Waits for the
// bus as prefers_dark() does, but not for one that has been waited for in vain.
void watch(std::function<void()> callback);

}  // namespace desktop_theme

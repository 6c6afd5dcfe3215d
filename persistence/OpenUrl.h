#pragma once

namespace varitap {

// ui thread. Hands address to the user's default handler (xdg-open, started in
// the background); silent on failure, leaves no child process behind.
void openURL(const char* address);

}  // namespace varitap

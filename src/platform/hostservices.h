// What the host has lent the library, for those parts of the library that want to use it. See tessel_host.h.
#pragma once

#include "tessel_host.h"

namespace platform {

// The clipboard as plain text. Get returns a new string, to be deleted with delete[], or null where there is
// no text; it serves the host's clipboard if one was lent, else one of the library's own. Set returns 0 if
// the text was not taken. On the host's thread.
char *GetClipboardText();
int SetClipboardText(const char *lpszText);

// Gives back the library's own clipboard, when the library is unloaded.
void ReleaseClipboard();

// Shows a message through the host, else as one line on the standard error stream. On any thread.
void ShowMessage(const char *lpszText, const char *lpszCaption);

}  // namespace platform

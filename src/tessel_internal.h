// What the exports and the module entry share.
#pragma once

// Stops the timer, ends everything that is loading and destroys the MainFrame. Nothing happens if there is
// none.
void DestroyMainFrame();

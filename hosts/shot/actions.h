/* What a user would do to a page, from the command line: clicks, text, keys. */
#ifndef TESSEL_SHOT_ACTIONS_H
#define TESSEL_SHOT_ACTIONS_H

#include <stdbool.h>

typedef enum ActionKind { ACTION_CLICK, ACTION_TYPE, ACTION_KEY } ActionKind;

typedef struct Action {
    ActionKind kind;
    const char *text;      /* ACTION_TYPE: what is typed, in UTF-8 */
    int x, y;              /* ACTION_CLICK: pixels of the page */
    bool shift, ctrl, alt; /* ACTION_KEY: what is held */
    int key;               /* ACTION_KEY: the virtual-key code */
} Action;

/* Each reads the value of its option, returns whether it is one, and keeps pointers into it. */
bool ParseClick(const char *value, Action *action);
bool ParseType(const char *value, Action *action);
bool ParseKey(const char *value, Action *action);

/* Does it to the page on show. The library drops what comes while that page is busy. */
void DoAction(const Action *action);

#endif

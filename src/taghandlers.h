// The handlers of the tags that set fonts, styles, alignment, colours, line breaks and the title. Other
// handlers stand with the class that they make.
#pragma once

#include "htmlparser.h"

int OnTagBody(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos,
              int *lpRemaining);
int OnTagBr(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos,
            int *lpRemaining);
int OnTagP(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos, int *lpRemaining);
int OnTagFont(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos,
              int *lpRemaining);
// H1 to H6, which differ in the size of the font alone.
template <int nSize>
int OnTagHeading(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos,
                 int *lpRemaining);
int OnTagB(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos, int *lpRemaining);
int OnTagI(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos, int *lpRemaining);
int OnTagU(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos, int *lpRemaining);
int OnTagTitle(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos,
               int *lpRemaining);
int OnTagCenter(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos,
                int *lpRemaining);

// Page: one document. It is an Element, so that a Frame can hold it and pass it events, and a Resource, so
// that a worker can load it. It owns everything that the document produced.
//
// A Page is made by OpenURL, or by a frameset, on any thread; fetched, parsed, laid out and installed on its
// worker; and from then on belongs to its Frame, under that Frame's mutexes. Whatever ends it goes through
// WorkerRegistry::Retire.
#pragma once

#include "arena.h"
#include "element.h"
#include "itemindex.h"
#include "resource.h"

class FontManager;
class Form;
class Hyperlink;
class Line;
class MetaTag;
class Table;

// The room that a host has for a title, terminator included. A longer one is cut.
inline constexpr int kTitleSize = 256;

class Page : public Element, public Resource {
  public:
    // Colours of the document, 0x00RRGGBB.
    uint32_t _dwBgColor = 0xFFFFFF;
    uint32_t _dwLinkColor = 0x0000FF;
    uint32_t _dwALinkColor = 0x00FFFF;
    uint32_t _dwVLinkColor = 0xFFFF00;
    // What to repaint, in the Page's own coordinates; all zero = nothing.
    Rect _rcDirty GUARDED_BY(_hDirtyMutex);
    // Owned; null unless the document has a TITLE.
    char *_lpszTitle = nullptr;
    // The same as _lpOwner, and as the Resource's, whose member it hides.
    Frame *_lpFrame;
    List<MetaTag> *_lpMetaTags = nullptr;    // owned
    List<int32_t> *_lpAlignStack = nullptr;  // owned; the open alignments of the parse
    List<Table> *_lpTables = nullptr;        // owned
    List<Line> *_lpLines = nullptr;          // in _arena; head = the Line being filled
    List<Line> *_lpFlowLines = nullptr;      // in _flowArena; only within Relayout
    List<Form> *_lpForms = nullptr;          // owned
    // What must be fetched once parsing has ended. The Resources belong to the Elements that show them.
    // Guarded, since a cancellation may walk it during the parse.
    List<Resource> *_lpFetches GUARDED_BY(WorkerRegistry::_mutex) = nullptr;
    // What is open during parsing.
    Hyperlink *_lpCurHyperlink = nullptr;
    Form *_lpCurForm = nullptr;
    Table *_lpCurTable = nullptr;
    FontManager *_lpFontManager;  // owned

    Page(Frame *lpFrame, const Point *lpOrigin, const Size *lpSize, const char *lpszURL);
    ~Page() override;

    // Element
    void AddChild(Element *lpChild) override;
    void Render(uint32_t *lpBuffer) override;

    // Resource
    void Cancel() override;
    void OnData() override;
    void OnTimeout() override;
    void OnCancelled() override;

    void AddFetch(Resource *lpResource);
    // htmlparser.cpp: reads a document of nLength bytes. Once, before the Page is shown.
    void ParseHTML(const char *lpData, int nLength);
    void ParseText(const char **lppPos, int *lpRemaining);
    void ParseTag(const char **lppPos, int *lpRemaining);
    // layout.cpp: gives every item its place and marks the whole Page for repainting. With paint and page
    // mutex held.
    void Relayout();
    void AlignLines();
    // Lays out after lpResource has come, or, where layouts follow too close on each other, leaves that to EnsureLayout
    // or to a later arrival, at last to that of the last picture. With paint and page mutex held.
    void OnArrival(const Resource *lpResource);
    // Does a layout that was put off. Before anybody looks at the items. The same.
    void EnsureLayout();
    bool IsLayoutDue() const { return _bLayoutDue; }
    // Adds to what must be repainted; four zeros mean the whole Page. On any thread.
    void AddDirtyRect(int x, int y, int w, int h);

    // The Lines, the runs of text, and the nodes of the Page's children and of what refers to them.
    Arena _arena;
    // What the last layout has cut runs into.
    Arena _pieceArena;
    // The flow Lines of one source Line.
    Arena _flowArena;
    // Written with paint and page mutex held, but for the marks, which are the host's thread's.
    ItemIndex _index;
    // The first of the tables whose widths the next layout may change.
    Table *_lpUnsettled = nullptr;
    // The part of the Page that can be painted: what lies in the buffer. Set by Render, for the items.
    Size _szVisible;
    // The node of the document's first Line, so that a layout need not look for it.
    List<Line> *_lpFirstLine;
    // Running workers of this Page and its Images; and whether it is on its way out.
    int _nWorkers GUARDED_BY(WorkerRegistry::_mutex) = 0;
    bool _bRetired GUARDED_BY(WorkerRegistry::_mutex) = false;

  protected:
    void EnterChildren(uint16_t x, uint16_t y) override;

  private:
    void RenderChildren(const Rect &rcDirty, uint32_t *lpBuffer);
    void ShareWidths();
    void PlaceItems();

    uint32_t _nChildren = 0;
    // Pictures that have not come.
    int _nAwaited = 0;
    // How many items the arrivals since the last layout have paid for; the first need not.
    int64_t _nCredit = INT32_MAX;
    bool _bLayoutDue = false;
    platform::Mutex _hDirtyMutex;
};

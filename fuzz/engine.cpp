#include <cstring>
#include <memory>
#include <utility>

#include "dllmain.h"
#include "frame.h"
#include "gfx.h"
#include "harness.h"
#include "hyperlink.h"
#include "image.h"
#include "layout.h"
#include "mainframe.h"
#include "page.h"
#include "platform/rasterizer.h"
#include "tessel_internal.h"
#include "text.h"
#include "textinput.h"
#include "workers.h"

namespace {

// A pixel of the guard zones. The engine never writes one with a top byte.
constexpr uint32_t kUntouched = 0xDEADBEEF;
constexpr size_t kGuard = 1024;
constexpr int kGuardColumns = 8;

// Cells of different widths, all ink.
class BlockRasterizer : public platform::Rasterizer {
  public:
    bool Open(const char *, int nHeight, uint16_t, platform::RasterFont *lpFont) override {
        *lpFont = {nHeight, 0, 0, 10, 20, nullptr};
        return true;
    }
    bool Draw(const platform::RasterFont &, int c, platform::CharCell *lpCell) override {
        lpCell->nA = c != '|';
        lpCell->nB = c == '|' ? 0 : c == '/' ? 9 : 1 + c % 17;
        lpCell->nC = c == '/' ? -2 : lpCell->nA;
        memset(lpCell->aInk, 0xFF, sizeof lpCell->aInk);
        return true;
    }
};

// There is no run-time type information: an object is told by its virtual table.
const void *ClassOf(const Element *lpElement) {
    const void *lpTable;
    memcpy(&lpTable, static_cast<const void *>(lpElement), sizeof lpTable);
    return lpTable;
}

struct Classes {
    const void *lpText, *lpLinkText, *lpInput, *lpPassword;

    Classes() {
        const Rect rc(0, 0, 9, 9);
        Page page(g_lpMainFrame, &rc, &rc, "");
        Font *lpFont = g_lpMainFrame->_lpFontNormal;
        const Text text(&page, "", lpFont);
        const LinkText linkText(&page, "", lpFont);
        const TextInput input(&page, "", "", 1, 1);
        const PasswordInput password(&page, "", "", 1, 1);
        lpText = ClassOf(&text), lpLinkText = ClassOf(&linkText);
        lpInput = ClassOf(&input), lpPassword = ClassOf(&password);
    }
    static const Classes &Get() {
        static const Classes s_classes;
        return s_classes;
    }
};

bool IsText(const Element *lpElement) {
    const void *lpClass = ClassOf(lpElement);
    return lpClass == Classes::Get().lpText || lpClass == Classes::Get().lpLinkText;
}

bool IsInput(const Element *lpElement) {
    const void *lpClass = ClassOf(lpElement);
    return lpClass == Classes::Get().lpInput || lpClass == Classes::Get().lpPassword;
}

bool IsNodeOf(const List<Element> *lpList, const List<Element> *lpNode) {
    while (lpList && lpList != lpNode)
        lpList = lpList->lpNext;
    return lpList == lpNode;
}

// Caret and selection are inside the text, and the text in its buffer.
void CheckInput(const TextInput *lpInput) {
    const int nLength = static_cast<int>(strlen(lpInput->_lpszValue));
    REQUIRE(nLength <= lpInput->_wMaxLength && lpInput->_wMaxLength <= 1023);
    REQUIRE(lpInput->_nCaret >= 0 && lpInput->_nCaret <= nLength);
    REQUIRE(lpInput->_nSelStart >= 0 && lpInput->_nSelStart <= lpInput->_nSelEnd &&
            lpInput->_nSelEnd <= nLength);
    REQUIRE(!lpInput->_nSelEnd || lpInput->_nCaret == lpInput->_nSelStart ||
            lpInput->_nCaret == lpInput->_nSelEnd);
}

// Pieces are what stands between the spaces of a text at which it was cut; the last may be empty, and is none then.
void CheckPieces(const Text *lpText) {
    std::string strPieces;
    for (auto *lpNode = List_Tail(lpText->_lpChildren); lpNode; lpNode = lpNode->lpPrev) {
        REQUIRE(IsText(lpNode->lpData) && !lpNode->lpData->_lpChildren);
        strPieces += static_cast<const Text *>(lpNode->lpData)->_lpszText + std::string(" ");
    }
    const std::string strText = lpText->_lpszText;
    REQUIRE(strPieces == strText || strPieces == strText + " ");
}

// Boxes of one Line stand side by side, or below each other.
void CheckBox(const Rect &rc, Rect *lpBefore) {
    REQUIRE(rc.x >= 0 && rc.x <= kMaxLength && rc.y >= 0 && rc.y <= kMaxLength);
    REQUIRE(rc.w >= 0 && rc.w <= kMaxLength && rc.h > 0 && rc.h <= kMaxLength);
    REQUIRE(rc.y == lpBefore->y ? rc.x >= AddLengths(lpBefore->x, lpBefore->w) : rc.y > lpBefore->y);
    *lpBefore = rc;
}

void CheckLine(const Line *lpLine) {
    Rect before(0, -1, 0, 0);
    for (const List<PageItem> *lpNode = lpLine->_lpFirstItem; lpNode; lpNode = lpNode->lpPrev) {
        const PageItem *lpItem = lpNode->lpData;
        if (lpItem->_lpChildren)
            CheckPieces(static_cast<const Text *>(lpItem));
        else if (!lpItem->_rc.IsZero())  // of a hidden field
            CheckBox(lpItem->_rc, &before);
        for (auto *lpPiece = List_Tail(lpItem->_lpChildren); lpPiece; lpPiece = lpPiece->lpPrev)
            CheckBox(lpPiece->lpData->_rc, &before);
    }
}

// Hover and focus are children that there are.
void CheckPointers(const Element *lpElement) {
    REQUIRE(IsNodeOf(lpElement->_lpChildren, lpElement->_lpHover));
    REQUIRE(IsNodeOf(lpElement->_lpChildren, lpElement->_lpFocus));
}

void CheckPage(const Page *lpPage) {
    CheckPointers(lpPage);
    for (const List<Line> *lpNode = lpPage->_lpLines; lpNode; lpNode = lpNode->lpNext)
        CheckLine(lpNode->lpData);
    for (const List<Element> *lpNode = lpPage->_lpChildren; lpNode; lpNode = lpNode->lpNext) {
        const Element *lpItem = lpNode->lpData;
        REQUIRE(lpItem->_lpOwner == lpPage);
        CheckPointers(lpItem);
        if (IsInput(lpItem))
            CheckInput(static_cast<const TextInput *>(lpItem));
    }
    REQUIRE(!lpPage->_lpFlowLines);
    REQUIRE(!lpPage->_lpszTitle || strlen(lpPage->_lpszTitle) < 256);
}

void CheckFrame(const Frame *lpFrame) {
    CheckPointers(lpFrame);
    REQUIRE(IsNodeOf(reinterpret_cast<List<Element> *>(lpFrame->_lpHistory),
                     reinterpret_cast<List<Element> *>(lpFrame->_lpHistoryCur)));
    if (lpFrame->_lpPage)
        CheckPage(lpFrame->_lpPage);
    for (const List<Element> *lpNode = lpFrame->_lpChildren; lpNode && !lpFrame->_lpPage;
         lpNode = lpNode->lpNext)
        CheckFrame(static_cast<const Frame *>(lpNode->lpData));
}

// The default fonts, which take longer to make than most inputs: kept from one engine to the next.
struct DefaultFonts {
    Font *lpNormal = nullptr, *lpBold = nullptr, *lpSmallBold = nullptr;
    List<CharInfo> *lpSets = nullptr;

    void Exchange() {
        std::swap(lpNormal, g_lpMainFrame->_lpFontNormal);
        std::swap(lpBold, g_lpMainFrame->_lpFontBold);
        std::swap(lpSmallBold, g_lpMainFrame->_lpFontSmallBold);
        std::swap(lpSets, g_lpMainFrame->_lpCharInfos);
    }
};
DefaultFonts g_fonts;

// A link shows its outline at the next painting after its own call alone.
void InvalidateFocus(const Frame *lpFrame) {
    if (const Page *lpPage = lpFrame->_lpPage) {
        if (lpPage->_lpFocus)
            lpPage->_lpFocus->lpData->Invalidate();
        return;
    }
    for (const List<Element> *lpNode = lpFrame->_lpChildren; lpNode; lpNode = lpNode->lpNext)
        InvalidateFocus(static_cast<const Frame *>(lpNode->lpData));
}

}  // namespace

Engine::Engine(int nWidth, int nHeight)
    : _nWidth(nWidth),
      _nHeight(nHeight),
      _buffer(static_cast<size_t>((nWidth + kGuardColumns) * nHeight) + 2 * kGuard, kUntouched) {
    static BlockRasterizer s_rasterizer;
    platform::ReplaceRasterizer(&s_rasterizer);
    g_world = World();
    REQUIRE(DllMain(this, PROCESS_ATTACH) == 1);
    g_lpMainFrame->hWnd = this;
    if (g_fonts.lpSets)
        g_fonts.Exchange();
    else
        REQUIRE(g_lpMainFrame->CreateDefaultFonts());
    g_lpMainFrame->_rc = Rect(0, 0, nWidth, nHeight);
    Classes::Get();
}

Engine::~Engine() {
    g_fonts.Exchange();
    DestroyMainFrame();
    REQUIRE(!RunThreads() && Workers().CountWorkers() == 0);
    REQUIRE(Workers().CountRetired() == 0 && Frame::CountFrames() == 0);
}

void Engine::Show(const std::string &strDocument) {
    g_world.files["page"] = strDocument;
    g_lpMainFrame->OpenURL("page", 1, 2);
    RunThreads();
    REQUIRE(Workers().CountRetired() == 0);
}

// Frames side by side stand in rows of the width that the host has given. A Page alone does not know how long the rows
// are: they get a guard zone of their own then.
void Engine::Render() {
    const bool bAlone = g_lpMainFrame->_lpPage != nullptr;
    const uint32_t nWidth = static_cast<uint32_t>(_nWidth + (bAlone ? kGuardColumns : 0));
    if (std::exchange(g_nBufferWidth, nWidth) != nWidth)
        std::fill(_buffer.begin(), _buffer.end(), kUntouched);
    uint32_t *lpFirst = _buffer.data() + kGuard;
    g_lpMainFrame->Render(lpFirst);
    const size_t nArea = size_t{g_nBufferWidth} * static_cast<size_t>(_nHeight);
    for (size_t i = 0; i < kGuard; ++i)
        REQUIRE(_buffer[i] == kUntouched && lpFirst[nArea + i] == kUntouched);
    for (int y = 0; y < _nHeight && bAlone; ++y) {
        const uint32_t *lpRow = lpFirst + static_cast<size_t>(y) * g_nBufferWidth;
        for (int x = 0; x < _nWidth; ++x)
            REQUIRE(lpRow[x] <= 0xFFFFFF);
        for (int x = _nWidth; x < _nWidth + kGuardColumns; ++x)
            REQUIRE(lpRow[x] == kUntouched);
    }
}

void Engine::Paint() {
    InvalidateFocus(g_lpMainFrame);
    Render();
    const std::vector<uint32_t> before = _buffer;
    g_lpMainFrame->Invalidate();
    InvalidateFocus(g_lpMainFrame);
    Render();
    REQUIRE(_buffer == before);
}

void Engine::Check() const {
    CheckFrame(g_lpMainFrame);
}

std::string MakeBitmap(int nWidth, int nHeight) {
    std::string strFile(54, '\0');
    strFile[0] = 'B', strFile[1] = 'M', strFile[28] = 24;
    strFile[18] = static_cast<char>(nWidth), strFile[22] = static_cast<char>(nHeight);
    const int nRow = (3 * nWidth + 3) / 4 * 4;
    for (int i = 0; i < nRow * nHeight; ++i)
        strFile += static_cast<char>(i * 37);
    return strFile;
}

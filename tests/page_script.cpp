#include "page_script.h"

#include <algorithm>
#include <cstdarg>
#include <iterator>
#include <optional>

#include "controls.h"
#include "fontmanager.h"
#include "hyperlink.h"
#include "image.h"
#include "meta.h"
#include "platform/clock.h"
#include "table.h"
#include "tessel.h"
#include "tessel_host.h"
#include "text.h"
#include "workers.h"

namespace {

std::atomic<uint32_t> g_dwNow;
std::atomic<int> g_nChanges;
// A host's clipboard, which refuses while it is "-", and what was put there.
std::string g_strClipboard;
std::optional<std::string> g_copied;

[[gnu::format(printf, 1, 2)]] std::string Print(const char *lpszFormat, ...) {
    char sz[512];
    va_list arguments;
    va_start(arguments, lpszFormat);
    vsnprintf(sz, sizeof sz, lpszFormat, arguments);
    va_end(arguments);
    return sz;
}

std::string ToText(const Rect &rc) {
    return Print("%d,%d %dx%d", rc.x, rc.y, rc.w, rc.h);
}

// What is not printable as in Expand, long runs of a character as their length.
std::string Escape(const std::string &str) {
    std::string strOut;
    for (size_t i = 0; i < str.size(); ++i) {
        const size_t nRun = std::min(str.find_first_not_of(str[i], i), str.size()) - i;
        if (str[i] != '\n' && (str[i] < ' ' || str[i] > '~'))
            strOut += Print("\\x%02X", static_cast<uint8_t>(str[i]));
        else
            strOut += nRun > 100 ? Print("{%zu*%c}", nRun, str[i]) : std::string(1, str[i]);
        i += nRun > 100 ? nRun - 1 : 0;
    }
    return strOut;
}

// Each run of text as text=size, followed by the styles in force (b, i, u), and by colour and face where they are
// not the default.
std::string Fonts(Page *lpPage) {
    std::string strFonts;
    for (auto *lpNode = List_Tail(lpPage->_lpChildren); lpNode; lpNode = lpNode->lpPrev) {
        if (!ParsedPage::IsText(lpNode->lpData))
            continue;
        const Text *lpText = static_cast<Text *>(lpNode->lpData);
        const Font &font = *lpText->_lpFont;
        strFonts += lpText->_lpszText + Print("=%d", font._bSize);
        for (int i = 0; i < 3; ++i)
            strFonts += font._wStyle >> i & 1 ? std::string(1, "biu"[i]) : "";
        strFonts += font._dwColor ? Print("#%06X", font._dwColor) : "";
        strFonts += EqualsNoCase(font._lpszFace, "ARIAL") ? " " : Print("@%s ", font._lpszFace);
    }
    return strFonts;
}

// Each column as width(least, of the texts, asked for).
std::string Tables(Page *lpPage) {
    std::string strTables;
    for (auto *lpTable = List_Tail(lpPage->_lpTables); lpTable; lpTable = lpTable->lpPrev) {
        strTables += Print("\ntable %d:", lpTable->lpData->_nWidth);
        for (auto *lpNode = List_Tail(lpTable->lpData->_lpCols); lpNode; lpNode = lpNode->lpPrev) {
            const TableCell &cell = *lpNode->lpData;
            strTables +=
                Print(" %d(%d,%d,%d)", cell._nWidth, cell._nMinWidth, cell._nMaxWidth, cell._nWantWidth);
        }
    }
    return strTables;
}

std::string Colors(Page *lpPage) {
    return Print("%06X link %06X visited %06X active %06X", lpPage->_dwBgColor, lpPage->_dwLinkColor,
                 lpPage->_dwVLinkColor, lpPage->_dwALinkColor);
}

std::string Fetches(Page *lpPage) {
    std::string strURLs;
    for (auto *lpNode = List_Tail(lpPage->_lpFetches); lpNode; lpNode = lpNode->lpPrev)
        strURLs += lpNode->lpData->_lpszURL + std::string(" ");
    return strURLs;
}

std::string TitleOf(Page *lpPage) {
    return lpPage->_lpszTitle ? '"' + std::string(lpPage->_lpszTitle) + '"' : "no title";
}

// Newest first, '*' behind the entry on show.
std::string History(const Frame *lpFrame) {
    std::string strHistory;
    for (auto *lpNode = lpFrame->_lpHistory; lpNode; lpNode = lpNode->lpNext)
        strHistory += std::string(lpNode->lpData) + (lpNode == lpFrame->_lpHistoryCur ? "* " : " ");
    return strHistory;
}

std::string Refresh(const Frame *lpFrame) {
    const MetaRefresh *lp = lpFrame->_lpRefresh;
    return lp ? Print("in %u from %u to %s", lp->_dwDelay, lp->_dwStart, lp->_lpszURL) : "no refresh";
}

// A link by its URL, a text in quotes, with the piece of it that is meant.
std::string Name(const char *lpszRole, List<Element> *Element::*lpRole, const Element *lpParent) {
    if (!(lpParent->*lpRole))
        return "";
    const Element *lpElement = (lpParent->*lpRole)->lpData;
    std::string strName = std::string(" ") + lpszRole + " ";
    if (ParsedPage::IsHyperlink(lpElement))
        strName += static_cast<const Hyperlink *>(lpElement)->lpszURL;
    else
        strName += ParsedPage::IsText(lpElement)
                       ? '"' + std::string(static_cast<const Text *>(lpElement)->_lpszText) + '"'
                       : "box";
    return strName + Name("in", lpRole, lpElement);
}

std::string Attention(const Page *lpPage) {
    return lpPage ? Name("focus", &Element::_lpFocus, lpPage) + Name("hover", &Element::_lpHover, lpPage)
                  : "";
}

std::string Frames(const Frame *lpFrame, const std::string &strIndent) {
    const auto is = [lpFrame](const List<Element> *lpNode) { return lpNode && lpNode->lpData == lpFrame; };
    const Frame *lpParent = lpFrame->_lpParent;
    std::string strFrames = strIndent + ToText(lpFrame->_rc) + " " + (lpParent ? History(lpFrame) : "");
    strFrames +=
        lpFrame->_lpPage ? lpFrame->_lpPage->_lpszURL + (" " + TitleOf(lpFrame->_lpPage)) : "no page";
    strFrames += lpParent && is(lpParent->_lpFocus) ? " focused" : "";
    strFrames += lpParent && is(lpParent->_lpHover) ? " pointed at" : "";
    strFrames += Attention(lpFrame->_lpPage) + (lpFrame->_lpRefresh ? " " + Refresh(lpFrame) : "") + "\n";
    for (auto *lpNode = lpFrame->_lpPage ? nullptr : List_Tail(lpFrame->_lpChildren); lpNode;
         lpNode = lpNode->lpPrev)
        strFrames += Frames(static_cast<Frame *>(lpNode->lpData), strIndent + "  ");
    return strFrames;
}

std::string Request(Page *lpPage) {
    return (lpPage->_wMethod == METHOD_GET ? "GET " : "POST ") + std::string(lpPage->_lpszURL);
}

std::string Counts() {
    platform_FetchCounts counts;
    platform_GetFetchCounts(&counts);
    return Print("pages %u, pictures %u, failed %u, running %u, frames %d, retired %d, changes %d",
                 static_cast<unsigned>(counts.pages_loaded), static_cast<unsigned>(counts.images_loaded),
                 static_cast<unsigned>(counts.images_failed), static_cast<unsigned>(counts.images_running),
                 Frame::CountFrames(), static_cast<int>(Workers().CountRetired()), g_nChanges.load());
}

std::string Rest(std::istringstream &words) {
    std::string strRest;
    std::getline(words >> std::ws, strRest);
    return Expand(strRest);
}

template <class T>
int Length(const List<T> *lpNode) {
    int nLength = 0;
    for (; lpNode; lpNode = lpNode->lpNext)
        ++nLength;
    return nLength;
}

uint32_t ReadNumber(std::istringstream &words) {
    uint32_t dwNumber = 0;
    words >> dwNumber;
    return dwNumber;
}

// Up to four numbers; 0 for those that are not there.
Rect ReadRect(std::istringstream &words) {
    Rect rc;
    for (int32_t *lpn : {&rc.x, &rc.y, &rc.w, &rc.h})
        words >> *lpn;
    return rc;
}

// The page that is used: the only one, or that of the newest Frame.
Page *PageInUse() {
    const MainFrame *lpMain = g_lpMainFrame;
    return lpMain->_lpPage ? lpMain->_lpPage : static_cast<Frame *>(lpMain->_lpChildren->lpData)->_lpPage;
}

// The mouse at so many pixels from the page's left edge: M moves, P moves and presses, D drags, U releases.
void Aim(const std::string &strWord) {
    const auto x = static_cast<uint16_t>(PageInUse()->_rc.x + atoi(strWord.c_str() + 1));
    const char c = strWord[0];
    if (c == 'M' || c == 'P')
        tessel_OnMouseMove(x, 0);
    if (c != 'M')
        (c == 'P' ? tessel_OnLMouseDown : c == 'D' ? tessel_OnLMouseDrag : tessel_OnLMouseUp)(x, 0);
}

// Marks stand for keys, '+' and '^' for Shift and Ctrl with the next one; every other character is typed.
void Type(const std::string &strKeys) {
    static const std::string strMarks = "<>()#~!\t", strCodes = "\x25\x27\x24\x23\x08\x2E\x0D\t";
    int nHeld = 0;
    for (const char c : strKeys) {
        if (c == '+' || c == '^') {
            tessel_OnKeyDown(nHeld = c == '+' ? 16 : 17);
            continue;
        }
        const size_t nMark = strMarks.find(c);
        const bool bMark = nMark != std::string::npos;
        if (bMark || isalpha(static_cast<uint8_t>(c)))
            tessel_OnKeyDown(bMark ? strCodes[nMark] : toupper(c));
        tessel_OnChar(bMark || nHeld == 17 ? c & 31 : c);
        tessel_OnKeyUp(nHeld);
        nHeld = 0;
    }
}

void ClickNewest() {
    const Rect &rc = PageInUse()->_lpChildren->lpData->_rc;
    for (auto *lpfnSend : {tessel_OnMouseMove, tessel_OnLMouseDown, tessel_OnLMouseUp})
        lpfnSend(static_cast<uint16_t>(rc.x + 1), static_cast<uint16_t>(rc.y + 1));
}

void LendClipboard(const std::string &strText) {
    const platform_HostServices services = {
        nullptr,
        [](void *) -> const char * { return g_strClipboard == "-" ? nullptr : g_strClipboard.c_str(); },
        [](void *, const char *lpszText) { return g_copied = lpszText, 1; }, nullptr};
    g_strClipboard = strText;
    platform_SetHostServices(&services);
}

// In the order of trying. The column of the ids, and '!' where there is no closing form.
std::string TagTable() {
    std::string strTable;
    for (const TagEntry *lpRow = g_aTagTable; lpRow->_lpszName; ++lpRow)
        strTable += lpRow->_lpszName + std::string(" ") + std::to_string(lpRow->_nTagId) +
                    (lpRow->_dwHasClose ? " " : "! ");
    return strTable;
}

// The host, path and query of a URL, "-" for none. Nothing is fetched if the turn is held.
std::string SplitURL(const std::string &strBase, const std::string &strURL) {
    ParsedPage page("", 10);
    g_lpMainFrame->SetBaseHost(strBase == "-" ? "" : strBase.c_str());
    Image picture(page.Get(), strURL.c_str(), 1, 1);
    g_lpMainFrame->Fetch(&picture);
    picture.Cancel();
    EXPECT_TRUE(EngineTest::WaitForWorkers());
    std::string strParts;
    for (const char *lpszPart : {picture._lpszHost, picture._lpszPath, picture._lpszQuery})
        strParts += lpszPart ? "[" + std::string(lpszPart) + "]" : "-";
    return strParts;
}

}  // namespace

std::string Expand(const std::string &strText, int nFewer) {
    std::string str;
    for (size_t i = 0; i < strText.size(); ++i) {
        const char *lpsz = &strText[i];
        int nFirst, nSecond, nEnd = 0;
        if (*lpsz == '\\') {
            static constexpr char kNames[] = "nrt0\\", kBytes[] = "\n\r\t\0\\";
            const bool bHex = lpsz[1] == 'x';
            str += bHex ? static_cast<char>(std::stoi(strText.substr(i + 2, 2), nullptr, 16))
                        : kBytes[std::string_view(kNames).find(lpsz[1])];
            i += bHex ? 3 : 1;
        } else if (sscanf(lpsz, "{%d*%n", &nFirst, &nEnd) == 1 && nEnd) {
            const size_t nClose = strText.find('}', i);
            const std::string strOne =
                Expand(strText.substr(i + static_cast<size_t>(nEnd), nClose - i - static_cast<size_t>(nEnd)));
            for (int n = 0; n < nFirst / nFewer; ++n)
                str += strOne;
            i = nClose;
        } else if (sscanf(lpsz, "[%dx%d]%n", &nFirst, &nSecond, &nEnd) == 2 && nEnd) {
            str += Print("<IMG SRC=x.bmp WIDTH=%d HEIGHT=%d>", nFirst, nSecond);
            i += static_cast<size_t>(nEnd) - 1;
        } else {
            str += *lpsz;
        }
    }
    return str;
}

std::string PageScript::Look() {
    static constexpr struct {
        const char *lpszName;
        std::string (*lpfnLook)(Page *lpPage);
        bool bNeedsPage = true;
    } kViews[] = {
        {"items", [](Page *lpPage) { return ParsedPage::Dump(lpPage); }},
        {"fonts", Fonts},
        {"tables", Tables},
        {"colors", Colors},
        {"fetches", Fetches},
        {"title", TitleOf},
        {"request", Request},
        {"bold", [](Page *lpPage) { return Print("bold %d", lpPage->_lpFontManager->_nBold); }},
        {"records", [](Page *lpPage) { return Print("records %d", Length(lpPage->_lpMetaTags)); }},
        {"attention", [](Page *lpPage) { return Attention(lpPage); }},
        {"dirty", [](Page *lpPage) { return ToText(lpPage->_rcDirty); }},
        {"history", [](Page *) { return History(g_lpMainFrame); }, false},
        {"refresh", [](Page *) { return Refresh(g_lpMainFrame); }, false},
        {"frames", [](Page *) { return Frames(g_lpMainFrame, ""); }, false},
        {"counts", [](Page *) { return Counts(); }, false},
    };
    std::string strAll;
    for (const std::string &strName : _views) {
        const auto *lpView =
            std::ranges::find(kViews, strName, [](const auto &view) { return view.lpszName; });
        if (lpView == std::end(kViews))
            return "no such view: " + strName;
        const std::string strView = lpView->bNeedsPage && !Shown() ? "no page" : lpView->lpfnLook(Shown());
        strAll += (strView.empty() ? "nothing" : strView) + "\n";
    }
    return strAll;
}

// An event to the Page that was parsed, or to all that the engine shows.
std::string PageScript::Send(const std::string &strEvent, int x, int y) {
    static const std::map<std::string, int (Element::*)(uint16_t, uint16_t)> kMouse = {
        {"move", &Element::OnMouseMove},    {"press", &Element::OnLMouseDown},
        {"release", &Element::OnLMouseUp},  {"drag", &Element::OnLMouseDrag},
        {"rpress", &Element::OnRMouseDown}, {"rrelease", &Element::OnRMouseUp},
        {"rdrag", &Element::OnRMouseDrag}};
    static const std::map<std::string, int (Element::*)(int)> kKeys = {
        {"key", &Element::OnKeyDown}, {"keyup", &Element::OnKeyUp}, {"syskey", &Element::OnSysKeyDown}};
    Element *lpTarget = _lpParsed ? static_cast<Element *>(_lpParsed->Get()) : g_lpMainFrame;
    const auto mouse = kMouse.find(strEvent);
    const auto key = kKeys.find(strEvent);
    if (mouse == kMouse.end() && key == kKeys.end())
        return "no such command: " + strEvent;
    const int nResult = key != kKeys.end()
                            ? (lpTarget->*key->second)(x)
                            : (lpTarget->*mouse->second)(static_cast<uint16_t>(x), static_cast<uint16_t>(y));
    const std::string strOpened = Settle();
    return std::to_string(nResult) + Attention(Shown()) + (strOpened.empty() ? "" : " ") + strOpened;
}

// The newest item, a control at the top of its page, as it is painted: the text of a field with '|' at the caret and
// '[' ']' around the selection, which are seen below the characters; the look of a button.
std::string PageScript::Control() {
    constexpr uint32_t kLight = 0xC0CCD8, kSunken = 0x4E657C, kSelection = 0x506478;
    tessel_Render(Buffer());
    if (!PageInUse() || !PageInUse()->_lpChildren)
        return "nothing";
    const auto &control = *static_cast<FormControl *>(PageInUse()->_lpChildren->lpData);
    const int x = PageInUse()->_rc.x + control._rc.x;
    if (PixelAt(x, 0) != kSunken)
        return PixelAt(x, 0) == kLight ? "normal" : PixelAt(x + 1, 1) == kLight ? "focused" : "pressed";
    std::string strControl;
    bool bSelected = false;
    for (size_t i = 0; i <= strlen(control._lpszValue); ++i) {
        const int nLeft = x + 3 + FixedRasterizer::kWidth * static_cast<int>(i);
        const bool bSeen = nLeft + 1 < _szBuffer.w;
        if (bSeen && (PixelAt(nLeft + 1, 20) == kSelection) != bSelected) {
            strControl += bSelected ? "]" : "[";
            bSelected = !bSelected;
        }
        strControl += bSeen && PixelAt(nLeft, 20) == 0 ? "|" : "";
        strControl += std::string(control._lpszValue).substr(i, 1);
    }
    return strControl;
}

// What becomes of a control with each word, and what was copied and opened on the way.
std::string PageScript::Use(std::istringstream &words) {
    std::string strStates;
    for (std::string strWord; words >> strWord;) {
        isdigit(strWord[1]) ? Aim(strWord) : Type(Expand(strWord));
        const std::string strOpened = Settle();
        strStates += Control() + " " + strOpened + (strOpened.empty() ? "" : " ");
        if (const auto copied = std::exchange(g_copied, std::nullopt))
            strStates += "copied \"" + *copied + "\" ";
    }
    return strStates;
}

// Waits for what an action has begun, unless others have to wait for their turn; tells what has been opened.
std::string PageScript::Settle() {
    EXPECT_TRUE(_lpTurn || WaitForWorkers());
    std::string strURLs;
    for (const List<char> *lpNode = g_lpMainFrame->_lpHistory; lpNode; lpNode = lpNode->lpNext)
        strURLs += lpNode->lpData + std::string("\n");
    const bool bOpened = std::exchange(_strURLs, strURLs) != strURLs;
    return bOpened ? "opens " + strURLs.substr(0, strURLs.find('\n')) : "";
}

std::string PageScript::SettleAndLook() {
    const std::string strOpened = Settle();
    return strOpened + (strOpened.empty() ? "" : "\n") + Look();
}

std::string PageScript::Parse(const std::string &strHTML) {
    _lpParsed = std::make_unique<ParsedPage>(strHTML, _szPage.w, _szPage.h);
    EXPECT_EQ(Shown()->_lpFlowLines, nullptr) << "left over from the layout";
    return Look();
}

// What was parsed here gives way to what the engine shows.
std::string PageScript::Open(const std::string &strURL) {
    _lpParsed.reset();
    tessel_OpenURL(strURL.c_str());
    Settle();
    return Look();
}

void PageScript::Paint(bool bOver) {
    if (!bOver)
        std::fill_n(Buffer(), _szBuffer.w * _szBuffer.h, kUntouched);
    if (_lpParsed)
        _lpParsed->Get()->Render(Buffer());
    else
        tessel_Render(Buffer());
}

// Each colour that is there: how many pixels, and the rectangle that they lie in.
std::string PageScript::CountColors(const Rect &rc) {
    struct Area {
        int nCount = 0, nLeft = 9999, nTop = 9999, nRight = 0, nBottom = 0;
    };
    std::map<uint32_t, Area> areas;
    for (int i = 0; i < rc.w * rc.h; ++i) {
        const int x = rc.x + i % rc.w, y = rc.y + i / rc.w;
        Area &area = areas[PixelAt(x, y)];
        area = {area.nCount + 1, std::min(area.nLeft, x), std::min(area.nTop, y),
                std::max(area.nRight, x + 1), std::max(area.nBottom, y + 1)};
    }
    areas.erase(kUntouched);
    std::string strColors;
    for (const auto &[dwColor, area] : areas) {
        const Rect rcArea(area.nLeft, area.nTop, area.nRight - area.nLeft, area.nBottom - area.nTop);
        strColors += Print("%06X %d in ", dwColor, area.nCount) + ToText(rcArea) + "\n";
    }
    return areas.empty() ? "nothing" : strColors;
}

// A letter for each pixel, '?' for colours that have none.
std::string PageScript::Picture(const Rect &rc) {
    static const std::map<uint32_t, char> kLetters = {
        {0, '#'},        {0xFFFFFF, '.'}, {0x0000FF, 'L'},   {0x00FFFF, 'A'},
        {0xAFAFAF, 'o'}, {0xFF0000, 'r'}, {0xF80000, 'r'},   {0x808080, 'g'},
        {0xC0C0C0, 's'}, {0x4C80AF, 'p'}, {kUntouched, '_'}, {0x8098B0, 'f'},
        {0xC0CCD8, '+'}, {0x4E657C, '-'}, {0x506478, 'x'},   {0x7F674F, ':'}};
    std::string strPicture;
    for (int i = 0; i < rc.w * rc.h; ++i) {
        const auto found = kLetters.find(PixelAt(rc.x + i % rc.w, rc.y + i / rc.w));
        strPicture += found == kLetters.end() ? '?' : found->second;
        strPicture += i % rc.w == rc.w - 1 ? "\n" : "";
    }
    return strPicture;
}

// The document is replaced, as by a worker that has parsed another one.
void PageScript::ReplacePage() {
    std::scoped_lock lock(g_lpMainFrame->_hPaintMutex, g_lpMainFrame->_hPageMutex);
    g_lpMainFrame->SetPage(new Page(g_lpMainFrame, &g_lpMainFrame->_rc, &g_lpMainFrame->_rc, ""));
}

// Keeps the turn to fetch.
void PageScript::Hold() {
    _lpTurn = std::make_unique<FetchTurn::Waiter>();
    EXPECT_TRUE(g_lpMainFrame->_hFetchMutex.WaitFor(_lpTurn.get(), 20000));
}

// Goes to a field by Tab, and uses it.
std::string PageScript::UseField(std::istringstream &words) {
    std::string strValue;
    words >> strValue;
    Open(WriteFile("page.html", "<INPUT MAXLENGTH=11 VALUE=" + strValue + ">"));
    Type("\t");
    const std::string strBefore = Control() + " ";
    return strBefore + Use(words);
}

// What asks for a page and looks at it.
PageScript::Verbs PageScript::PageVerbs(std::istringstream &words, const Rect &rc) {
    const auto Count = [&] { return CountColors(rc.w ? rc : Rect(0, 0, _szBuffer.w, _szBuffer.h)); };
    return {
        {"page", [&] { return Parse(Rest(words)); }},
        {"look", [&] { return Look(); }},
        {"show",
         [&] {
             return _views = {std::istream_iterator<std::string>(words), {}}, "";
         }},
        {"buffer", [&] { return EndScript(), StartScript(rc.x, rc.y), ""; }},
        {"size",
         [&] {
             return _szPage = {rc.x, rc.y ? rc.y : 300}, "";
         }},
        {"resize", [&] { return Shown()->_rc.w = rc.x, Shown()->Relayout(), Look(); }},
        {"dirty", [&] { return Shown()->AddDirtyRect(rc.x, rc.y, rc.w, rc.h), ToText(Shown()->_rcDirty); }},
        {"paint", [&, Count] { return Paint(false), Count(); }},
        {"repaint", [&, Count] { return Paint(true), Count(); }},
        {"picture", [&] { return Picture(rc); }},
    };
}

// What the host of the engine and its user do, and what is done to the engine.
PageScript::Verbs PageScript::EngineVerbs(std::istringstream &words) {
    return {
        {"back", [&] { return tessel_Prev(), SettleAndLook(); }},
        {"cancel", [&] { return tessel_OnCancel(), SettleAndLook(); }},
        {"invalidate", [&] { return tessel_Invalidate(), SettleAndLook(); }},
        {"settle", [&] { return SettleAndLook(); }},
        {"load", [&] { return Open(WriteFile("page.html", Rest(words))); }},
        {"open", [&] { return Open(Rest(words)); }},
        {"hold", [&] { return Hold(), ""; }},
        {"go", [&] { return g_lpMainFrame->_hFetchMutex.Release(), _lpTurn.reset(), SettleAndLook(); }},
        {"wait", [&] { return WaitForWorkers() ? Look() : "in vain"; }},
        {"replace", [&] { return ReplacePage(), WaitForWorkers() ? Look() : "in vain"; }},
        {"clock", [&] { return g_dwNow = ReadNumber(words), ""; }},
        {"tick", [&] { return g_lpMainFrame->OnTimer(g_dwNow + ReadNumber(words)), SettleAndLook(); }},
        {"use", [&] { return Use(words); }},
        {"field", [&] { return UseField(words); }},
        {"click", [&] { return ClickNewest(), SettleAndLook(); }},
        {"clipboard", [&] { return LendClipboard(Rest(words)), ""; }},
        {"told", [&] { return std::to_string(g_nChanges.exchange(0)); }},
    };
}

// One reader alone, and the files that others read.
PageScript::Verbs PageScript::TextVerbs(std::istringstream &words, std::string &strName) {
    return {
        {"color", [&] { return Print("%06X", ParseColor(Rest(words).c_str())); }},
        {"number", [&] { return std::to_string(ParseInt(Rest(words).c_str())); }},
        {"tags", TagTable},
        {"file", [&] { return words >> strName, WriteFile(strName, Rest(words)), ""; }},
        {"url", [&] { return words >> strName, SplitURL(strName, Rest(words)); }},
    };
}

std::string PageScript::Act(const std::string &strLine) {
    std::istringstream words(strLine), numbers(strLine);
    std::string strVerb, strName;
    words >> strVerb;
    numbers >> strVerb;
    const Rect rc = ReadRect(numbers);
    for (const Verbs &verbs : {PageVerbs(words, rc), EngineVerbs(words), TextVerbs(words, strName)}) {
        if (verbs.contains(strVerb))
            return Escape(verbs.at(strVerb)());
    }
    return Escape(Send(strVerb, rc.x, rc.y));
}

void PageScript::StartScript(int nWidth, int nHeight) {
    g_dwNow = 1000;
    g_nChanges = 0;
    platform::ReplaceTicks([] { return g_dwNow.load(); });
    StartEngine(nWidth, nHeight);
    tessel_SetCallback(TESSEL_CALLBACK_CHANGED, [](int) { ++g_nChanges; });
    WriteFile("red.tga", RedTGA(20, 10));
    _szBuffer = {nWidth, nHeight};
    _szPage = {400, 300};
    _views = {"items"};
    _strURLs.clear();
}

void PageScript::EndScript() {
    _lpParsed.reset();
    EndEngine();
    platform::ReplaceTicks(nullptr);
    platform_SetHostServices(nullptr);
}

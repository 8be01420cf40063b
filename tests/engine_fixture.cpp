#include "engine_fixture.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "dllmain.h"
#include "hyperlink.h"
#include "tessel.h"
#include "text.h"
#include "workers.h"

std::string Contents(const std::string &strFile) {
    std::ifstream file(strFile, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string RedTGA(uint8_t bWidth, uint8_t bHeight) {
    std::string strFile(18, '\0');
    strFile[2] = 2;
    strFile[12] = static_cast<char>(bWidth);
    strFile[14] = static_cast<char>(bHeight);
    strFile[16] = 16;
    for (int i = 1; i < bWidth * bHeight; ++i)
        strFile += std::string("\x00\x7C", 2);
    return strFile + std::string(2, '\0');
}

bool FixedRasterizer::Open(const char *, int nHeight, uint16_t, platform::RasterFont *lpFont) {
    ++nOpened;
    *lpFont = {nHeight, 0, 0, kWidth, kWidth, nullptr};
    return !bFails;
}

bool FixedRasterizer::Draw(const platform::RasterFont &, int c, platform::CharCell *lpCell) {
    ++nDrawn;
    lpCell->bBox = bBoxes;
    lpCell->nA = lpCell->nC = c != '|';
    lpCell->nB = c == '|' ? 0 : kWidth - 2;
    if (c == '/')
        lpCell->nB = kWidth - 1, lpCell->nC = -2;
    memset(lpCell->aInk, 0xFF, sizeof lpCell->aInk);
    return !bFails;
}

void EngineTest::StartEngine(int nWidth, int nHeight) {
    char szFolder[] = "/tmp/tessel-test-XXXXXX";
    _strFolder = mkdtemp(szFolder);
    std::filesystem::current_path(_strFolder);
    platform::ReplaceRasterizer(&_rasterizer);
    _nWidth = nWidth;
    _buffer.assign(static_cast<size_t>(nWidth * nHeight) + 2 * kGuard, kUntouched);
    RestartEngine(nWidth, nHeight);
}

void EngineTest::RestartEngine(int nWidth, int nHeight) {
    ASSERT_EQ(DllMain(this, PROCESS_ATTACH), 1);
    ASSERT_EQ(tessel_Init(this, nWidth, nHeight), 1);
}

void EngineTest::StopEngine() {
    if (g_lpMainFrame)
        tessel_ShutDown();
    DllMain(this, PROCESS_DETACH);
    EXPECT_EQ(Workers().CountRetired(), 0) << "retired objects outlive the library";
}

void EngineTest::EndEngine() {
    StopEngine();
    platform::ReplaceRasterizer(nullptr);
    std::filesystem::current_path("/");
    std::filesystem::remove_all(_strFolder);
    for (size_t i = 0; i < kGuard; ++i)
        ASSERT_TRUE(_buffer[i] == kUntouched && _buffer[_buffer.size() - 1 - i] == kUntouched)
            << "written outside the host's buffer";
}

int EngineTest::CountPixels(uint32_t dwColor, int x, int y, int w, int h) {
    int nCount = 0;
    for (int nRow = y; nRow < y + h; ++nRow) {
        for (int nColumn = x; nColumn < x + w; ++nColumn)
            nCount += PixelAt(nColumn, nRow) == dwColor;
    }
    return nCount;
}

std::string EngineTest::WriteFile(const std::string &strName, const std::string &strContents) {
    std::ofstream(strName, std::ios::binary) << strContents;
    return strName;
}

bool EngineTest::WaitForWorkers() {
    return WaitUntil([] { return Workers().CountWorkers() == 0; });
}

void EngineTest::Load(const std::string &strURL) {
    tessel_OpenURL(strURL.c_str());
    ASSERT_TRUE(WaitForWorkers());
}

ParsedPage::ParsedPage(const std::string &strHTML, int nWidth, int nHeight) {
    const Rect rc(0, 0, nWidth, nHeight);
    _lpPage.reset(new Page(g_lpMainFrame, &rc, &rc, "test"));
    // A copy of exactly that length, so that the address sanitizer sees a read behind it.
    const std::unique_ptr<char[]> lpData(new char[strHTML.size()]);
    memcpy(lpData.get(), strHTML.data(), strHTML.size());
    _lpPage->ParseHTML(lpData.get(), static_cast<int>(strHTML.size()));
    _lpPage->Relayout();
}

std::string EngineTest::Title() {
    char szTitle[TESSEL_TITLE_SIZE] = "-";
    tessel_GetTitle(szTitle);
    return szTitle;
}

// There is no run-time type information: an object is told by its virtual table.
static const void *ClassOf(const Element *lpElement) {
    const void *lpTable;
    memcpy(&lpTable, static_cast<const void *>(lpElement), sizeof lpTable);
    return lpTable;
}

// Whether it is of the same class as the n-th newest item of a sample.
static bool IsLike(const Element *lpElement, int n) {
    static const std::vector<const void *> s_classes = [] {
        ParsedPage sample("<A HREF=x>a</A>b", 100);
        std::vector<const void *> classes;
        for (const List<Element> *lpNode = sample->_lpChildren; lpNode; lpNode = lpNode->lpNext)
            classes.push_back(ClassOf(lpNode->lpData));
        return classes;
    }();
    return ClassOf(lpElement) == s_classes[static_cast<size_t>(n)];
}

bool ParsedPage::IsHyperlink(const Element *lpElement) {
    return IsLike(lpElement, 2);
}

bool ParsedPage::IsText(const Element *lpElement) {
    return IsLike(lpElement, 0) || IsLike(lpElement, 1);
}

static std::string DumpItem(Element *lpElement, const std::string &strIndent) {
    if (ParsedPage::IsHyperlink(lpElement))
        return strIndent + "anchor " + static_cast<Hyperlink *>(lpElement)->lpszURL + "\n";
    const Rect &rc = lpElement->_rc;
    std::string strDump = strIndent;
    if (!lpElement->_lpChildren)
        strDump += std::to_string(rc.x) + "," + std::to_string(rc.y) + " " + std::to_string(rc.w) + "x" +
                   std::to_string(rc.h) + " ";
    if (!ParsedPage::IsText(lpElement))
        return strDump + "box\n";
    strDump += IsLike(lpElement, 1) ? "link \"" : "\"";
    strDump += static_cast<Text *>(lpElement)->_lpszText;
    strDump += "\"\n";
    for (auto *lpNode = List_Tail(lpElement->_lpChildren); lpNode; lpNode = lpNode->lpPrev)
        strDump += DumpItem(lpNode->lpData, strIndent + "  ");
    return strDump;
}

std::string ParsedPage::Dump(const Page *lpPage) {
    std::string strDump;
    for (auto *lpNode = List_Tail(lpPage->_lpChildren); lpNode; lpNode = lpNode->lpPrev)
        strDump += DumpItem(lpNode->lpData, "");
    return strDump;
}

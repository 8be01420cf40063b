#include "bench.h"

#include <cstdlib>
#include <iterator>

#include "dllmain.h"
#include "mainframe.h"
#include "tessel.h"

BenchEngine::BenchEngine(int nWidth, int nHeight)
    : _buffer(static_cast<size_t>(nWidth) * static_cast<size_t>(nHeight)) {
    static int s_nInstance;
    if (!DllMain(&s_nInstance, PROCESS_ATTACH) || !tessel_Init(&s_nInstance, nWidth, nHeight))
        abort();
}

BenchEngine::~BenchEngine() {
    tessel_ShutDown();
    DllMain(this, PROCESS_DETACH);
}

std::unique_ptr<Page> NewPage() {
    const Rect &rc = g_lpMainFrame->_rc;
    return std::make_unique<Page>(g_lpMainFrame, &rc, &rc, "bench");
}

std::unique_ptr<Page> NewPage(const std::string &strHTML) {
    std::unique_ptr<Page> lpPage = NewPage();
    lpPage->ParseHTML(strHTML.data(), static_cast<int>(strHTML.size()));
    lpPage->Relayout();
    return lpPage;
}

namespace {

// Each letter about as often as in English.
constexpr char kLetters[] = "eeeeeetttttaaaaooooiiiinnnnssssrrrrhhhlllddduuccmmwwffgyypbvk";

struct Style {
    const char *lpszOpen, *lpszClose;
};

constexpr Style kStyles[] = {
    {"<B>", "</B> "},
    {"<I>", "</I> "},
    {"<A HREF=\"page.html\">", "</A> "},
    {"<FONT COLOR=\"#800000\">", "</FONT> "},
    {"<FONT SIZE=2>", "</FONT> "},
};

class Writer {
  public:
    std::string strText;

    void Words(uint32_t nWords) {
        for (; nWords > 0; --nWords) {
            for (uint32_t nLetters = 1 + Below(5) + Below(6); nLetters > 0; --nLetters)
                strText += kLetters[Below(sizeof kLetters - 1)];
            strText += ' ';
        }
    }

    void Paragraph() {
        strText += "<P>";
        for (uint32_t nParts = 2 + Below(6); nParts > 0; --nParts) {
            Words(5 + Below(20));
            const Style &style = kStyles[Below(std::size(kStyles))];
            strText += style.lpszOpen;
            Words(1 + Below(4));
            strText += style.lpszClose;
        }
        strText += Below(4) ? "\r\n" : "<BR>\r\n";
    }

    void Heading() {
        strText += "<H2>";
        Words(2 + Below(6));
        strText += "</H2>\r\n";
    }

    // The C++ library's generators are the same everywhere, its distributions are not.
    uint32_t Below(uint32_t n) {
        _dwState = _dwState * 1664525 + 1013904223;
        return (_dwState >> 16) % n;
    }

  private:
    uint32_t _dwState = 1;
};

}  // namespace

std::string MakeWords(size_t nBytes) {
    Writer writer;
    while (writer.strText.size() < nBytes)
        writer.Words(1);
    writer.strText.resize(nBytes);
    return writer.strText;
}

std::string MakeProse(size_t nBytes) {
    Writer writer;
    writer.strText = "<HTML><TITLE>Prose</TITLE><BODY BGCOLOR=WHITE>\r\n";
    while (writer.strText.size() < nBytes) {
        if (writer.Below(8) == 0)
            writer.Heading();
        writer.Paragraph();
    }
    writer.strText.resize(nBytes);
    return writer.strText;
}

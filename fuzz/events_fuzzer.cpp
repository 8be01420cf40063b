// What a host does with a page: it points, clicks, types, paints, and lets time go by and pages come.
#include "harness.h"
#include "mainframe.h"
#include "page.h"
#include "platform/hostservices.h"

namespace {

constexpr const char *kPages[] = {
    "<FORM ACTION=page METHOD=GET>name <INPUT NAME=a VALUE=\"some text\" SIZE=6 MAXLENGTH=12><INPUT "
    "TYPE=PASSWORD "
    "NAME=b VALUE=secret SIZE=4><INPUT TYPE=HIDDEN NAME=h VALUE=x><INPUT TYPE=SUBMIT "
    "VALUE=Send></FORM><INPUT>",
    "<A HREF=page>a link of several words</A> and <A HREF=f><IMG SRC=p.bmp> another/one|</A><P><A "
    "HREF=none>third</A>",
    "<TABLE><TR><TD><IMG SRC=p.bmp WIDTH=9><TD>cell <INPUT VALUE=v><TR><TD><A HREF=f>l</A><TD>more "
    "words</TABLE>",
    "<FRAMESET COLS=\"60,*\"><FRAME SRC=f><FRAME SRC=g></FRAMESET>",
    "<META HTTP-EQUIV=REFRESH CONTENT=1 URL=f><CENTER>wait <IMG SRC=none.bmp HEIGHT=20 WIDTH=30></CENTER>",
};

constexpr int kKeys[] = {8, 9, 13, 16, 17, 27, 35, 36, 37, 39, 46, 'C', 'V', 'X', 38, 40};

void Step(Engine *lpEngine, Input *lpInput) {
    MainFrame *lpFrame = g_lpMainFrame;
    const int nEvent = lpInput->Byte() % 19;
    const uint8_t bFirst = lpInput->Byte();
    const int nKey = kKeys[bFirst % 16];
    if (nEvent < 7) {
        constexpr int (Element::*kEvents[])(uint16_t, uint16_t) = {
            &Element::OnMouseMove, &Element::OnLMouseDown, &Element::OnLMouseUp,  &Element::OnRMouseDown,
            &Element::OnRMouseUp,  &Element::OnLMouseDrag, &Element::OnRMouseDrag};
        (lpFrame->*kEvents[nEvent])(bFirst, lpInput->Byte());
        return;
    }
    switch (nEvent) {
        case 7:
            lpFrame->OnChar(bFirst);
            break;
        case 8:
        case 9:
            lpFrame->OnKeyDown(nKey);
            break;
        case 10:
            lpFrame->OnKeyUp(nKey);
            break;
        case 11:
            lpFrame->OnSysKeyDown(nKey);
            break;
        case 12:
            lpFrame->OnSysKeyUp(nKey);
            break;
        case 13:
            lpEngine->Paint();
            break;
        case 14:
            RunThreads();
            break;
        case 15:
            platform::SetClipboardText(std::string(bFirst, 'p').c_str());
            break;
        case 16:
            g_world.dwTicks += bFirst * 100u;
            lpFrame->OnTimer(g_world.dwTicks);
            break;
        case 17:
            if (lpFrame->_lpPage)
                lpFrame->_lpPage->Relayout();
            break;
        default:
            lpFrame->OpenURL(bFirst & 1 ? "f" : "page", bFirst & 2, METHOD_GET);
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *lpData, size_t nSize) {
    Input input(lpData, nSize);
    const int nWidth = input.OddNumber(), nHeight = input.OddNumber();
    Engine engine(nWidth, nHeight);
    g_world.files["p.bmp"] = MakeBitmap(30, 20);
    g_world.files["f"] = "<A HREF=page>back</A> <INPUT NAME=c VALUE=text>";
    g_world.files["g"] = kPages[0];
    engine.Show(kPages[input.Byte() % std::size(kPages)]);
    while (!input.AtEnd()) {
        Step(&engine, &input);
        engine.Check();
    }
    engine.Paint();
    platform::ReleaseClipboard();
    return 0;
}

std::vector<std::string> Seeds() {
    std::vector<std::string> seeds;
    for (char cPage = 0; cPage < static_cast<char>(std::size(kPages)); ++cPage) {
        std::string strSeed = {'\x3F', '\x30', cPage};
        // Tab, type, erase on both sides, select, copy, paste, fill the field; and the same with the next one; submit.
        for (const char *lpszSteps :
             {"\x08\x01\x07x\x08\x10\x08\x08\x08\x0A\x0D_", "\x08\x06\x08\x10\x08\x03\x08\x08\x08\x08\x0D_",
              "\x08\x04\x08\x0B\x0A\x03\x08\x07\x08\x0C\x08\x0C\x08\x03\x08\x06\x07y\x0A\x03\x0D_",
              "\x07z\x07z\x07z\x07z\x07z\x07z\x07z\x07z\x07z\x07z\x07z\x07z\x07z",
              "\x0F\x05\x08\x07\x08\x0C\x0D_",
              "\x08\x01\x07y\x08\x10\x08\x03\x08\x07\x0D_\x08\x01\x08\x02\x0E_"})
            strSeed += lpszSteps;
        // Point and click in a line, painting and laying out on the way; then other pages, back, and a while later.
        for (char x = 8; x < 120; x = static_cast<char>(x + 12))
            strSeed += {0, x,  12, 1, x,  12, 5, static_cast<char>(x + 9), 12, 13, 0, 17, 0, 2,
                        x, 12, 0,  x, 30, 17, 0};
        seeds.push_back(
            strSeed + std::string({14, 0, 13, 0, 18, 1, 0, 9, 9, 14, 0, 11, 8, 14, 0, 16, 20, 14, 0, 13, 0}));
    }
    return seeds;
}

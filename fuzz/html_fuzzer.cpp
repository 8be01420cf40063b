// A document, as a page of an odd size and in frames of pages, down to the pixels.
#include "harness.h"
#include "mainframe.h"
#include "page.h"

// The places of everything on a page.
static std::vector<Rect> Places(const Page *lpPage) {
    std::vector<Rect> places;
    for (const List<Element> *lpNode = lpPage->_lpChildren; lpNode; lpNode = lpNode->lpNext) {
        places.push_back(lpNode->lpData->_rc);
        for (const List<Element> *lpPiece = lpNode->lpData->_lpChildren; lpPiece; lpPiece = lpPiece->lpNext)
            places.push_back(lpPiece->lpData->_rc);
    }
    return places;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *lpData, size_t nSize) {
    Input input(lpData, nSize);
    const int nWidth = input.OddNumber(), nHeight = input.OddNumber();
    Engine engine(nWidth, nHeight);
    g_world.files["p.bmp"] = MakeBitmap(3, 2);
    g_world.files["f"] = "<A HREF=x>a page</A> in a frame<INPUT TYPE=SUBMIT VALUE=button>";
    engine.Show(input.Rest());
    engine.Check();
    engine.Paint();
    Page *lpPage = g_lpMainFrame->_lpPage;
    // Columns of tables may still grow from one layout to the next; nothing else does.
    if (lpPage && !lpPage->_lpTables) {
        const std::vector<Rect> before = Places(lpPage);
        lpPage->Relayout();
        REQUIRE(Places(lpPage) == before);
    }
    return 0;
}

std::vector<std::string> Seeds() {
    std::vector<std::string> seeds;
    for (const std::string strPage : {
             "<HTML><TITLE>a &lt;title&gt;</TITLE><BODY BGCOLOR=#102030 TEXT=red LINK=BLUE>words and\tmore "
             "words</BODY>",
             "<H1>one</H1><h6>two</h6><P>three <B>bold <I>both</I> <U>line</U></B><BR>/|/&nbsp;&copy;",
             "<FONT SIZE=+2 COLOR=0F0 FACE=serif>large <FONT SIZE=1>small</FONT></FONT> "
             "<CENTER>middle</CENTER>",
             "<A HREF=\"a b\">a link that is longer than its line is wide</A><A HREF=x><IMG SRC=p.bmp></A>",
             "<IMG SRC=p.bmp WIDTH=40><IMG SRC=p.bmp WIDTH=7 HEIGHT=9><IMG SRC=none.jpg><IMG SRC=x.gif "
             "HEIGHT=99>",
             "<TABLE ALIGN=RIGHT><TR><TD WIDTH=30%>a cell<TD ALIGN=CENTER>b<TR><TH>longer words<TD "
             "HEIGHT=9>c</TABLE>t",
             "<FORM ACTION=x METHOD=GET><INPUT NAME=a VALUE=b SIZE=5><INPUT TYPE=PASSWORD VALUE=secret "
             "MAXLENGTH=20>"
             "<INPUT TYPE=HIDDEN NAME=h><INPUT TYPE=SUBMIT VALUE=\"press me\"></FORM>",
             "<META HTTP-EQUIV=REFRESH CONTENT=1 URL=page>after a second",
             "<FRAMESET COLS=\"30%,*,20\"><FRAME SRC=f><FRAME SRC=page><FRAME SRC=f></FRAMESET>",
             "<FRAMESET ROWS=\"9,-5,400\"><FRAME SRC=f><FRAME SRC=f><FRAME SRC=none></FRAMESET>",
         })
        for (const std::string strSize : {"\x20\x18", "\x3F\x3F", "\x80\x80"})
            seeds.push_back(strSize + strPage);
    return seeds;
}

// What a form sends, and the controls that its tags make.
#include "form.h"

#include "engine_fixture.h"
#include "loopback_server.h"
#include "tessel.h"
#include "textinput.h"

class FormTest : public EngineTest {
  protected:
    // Shows a page and clicks the last thing on it.
    void ClickLast(const std::string &strHTML) {
        Load(WriteFile("page.html", strHTML));
        ASSERT_TRUE(g_lpMainFrame->_lpPage && g_lpMainFrame->_lpPage->_lpChildren);
        const Rect &rc = g_lpMainFrame->_lpPage->_lpChildren->lpData->_rc;
        const auto x = static_cast<uint16_t>(rc.x + 1), y = static_cast<uint16_t>(rc.y + 1);
        tessel_OnMouseMove(x, y);
        tessel_OnLMouseDown(x, y);
        tessel_OnLMouseUp(x, y);
        ASSERT_TRUE(WaitForWorkers());
    }
};

TEST_F(FormTest, ValuesBecomeTheQuery) {
    const std::string strFields = "<INPUT NAME=a VALUE=1><INPUT TYPE=text NAME=b VALUE=2><INPUT TYPE=SUBMIT>";
    const std::string strButton = "<INPUT TYPE=Submit>", strForm = "<FORM ACTION=x>";
    const struct {
        std::string strHTML;
        const char *lpszURL;
        int nMethod = METHOD_POST;
    } aCases[] = {
        {strForm + strFields, "x?b=2&a=1"},
        {"<FORM ACTION=x METHOD=GET>" + strFields, "x?b=2&a=1", METHOD_GET},
        {"<FORM METHOD=getter METHOD=POST ACTION=x>" + strFields, "x?b=2&a=1", METHOD_GET},
        {"<FORM ACTION=x METHOD=\"post\">" + strButton, "x"},
        {"<FORM ACTION=x?y=1 ACTION=\"\">" + strFields, "x?y=1?b=2&a=1"},
        {strForm + "<INPUT NAME=a CHECKED>" + strButton, "x?a="},
        {strForm + "<INPUT VALUE=a>" + strButton, "x"},
        {strForm + "<INPUT TYPE=hidden NAME=a><INPUT TYPE=HIDDEN NAME=b VALUE=2>" + strButton, "x?b=2&a="},
        {strForm + "<INPUT TYPE=PASSWORD NAME=p VALUE=abc>" + strButton, "x?p=abc"},
        {strForm + "<INPUT TYPE=SUBMIT NAME=s VALUE=Go><INPUT TYPE=SUBMIT NAME=t>", "x?t=&s=Go"},
        {strForm + "<INPUT NAME=\" &=%+\" VALUE=\"&amp = %41/?\">" + strButton, "x? &=%+=&amp = %41/?"},
        {strForm + "<INPUT TYPE=BOX NAME=c><INPUT TYPE=TEXTAREA NAME=d><INPUT TYPE NAME=e>" + strButton, "x"},
        {strForm + "<INPUT TYPE=RADIO NAME=a namex=b VALUE=1 value=2 TYPE=TEXT>" + strButton, "x?b=2"},
        {strForm + "<INPUT NAME VALUE=v>" + strButton, "x?=v"},
        // Which form a control belongs to.
        {"<INPUT NAME=a>" + strForm + strFields, "x?b=2&a=1"},
        {"<FORM ACTION=y><INPUT NAME=c>" + strForm + strFields, "x?b=2&a=1"},
        {strForm + "<INPUT NAME=c><FORM><FORM ACTION=\"\" METHOD=GET>" + strFields, "x?b=2&a=1&c="},
        {strForm + "<TABLE><TD><INPUT NAME=c></TABLE><P>" + strFields, "x?b=2&a=1&c="},
        {strForm + "</FORM>" + strFields, "page.html", METHOD_GET}};
    for (const auto &testCase : aCases) {
        ClickLast(testCase.strHTML);
        EXPECT_STREQ(g_lpMainFrame->_lpHistory->lpData, testCase.lpszURL) << testCase.strHTML;
        EXPECT_STREQ(g_lpMainFrame->_lpPage->_lpszURL, testCase.lpszURL) << testCase.strHTML;
        EXPECT_EQ(g_lpMainFrame->_lpPage->_wMethod, testCase.nMethod) << testCase.strHTML;
    }
}

TEST_F(FormTest, ServerGetsTheBytesAsTheyAre) {
    LoopbackServer server;
    server.Prescribe({"<TITLE>answer</TITLE>"});
    // Every byte that a value can hold, and more controls than a line of a request has room for.
    std::string strBytes, strMany, strPairs;
    for (int c = 255; c > 0; --c)
        strBytes += strchr("\">;", c) ? '-' : static_cast<char>(c);
    std::string strNoBreaks = strBytes;
    for (char &c : strNoBreaks)
        c = strchr("\r\n", c) ? '-' : c;
    for (int i = 20000; i > 0; --i) {
        strMany += "<INPUT TYPE=HIDDEN VALUE=v NAME=" + std::to_string(20001 - i) + ">";
        strPairs += (strPairs.empty() ? "" : "&") + std::to_string(i) + "=v";
    }
    const struct {
        const char *lpszMethod;
        std::string strControls, strRequest;
    } aCases[] = {
        {"GET", "<INPUT NAME=n VALUE=\"" + strNoBreaks + "\">",
         "GET /f?n=" + strNoBreaks + " HTTP/1.0\r\nHost: " + server.strAddress + "\r\n\r\n"},
        {"POST", "<INPUT NAME=n VALUE=\"" + strBytes + "\">", "POST /f HTTP/1.0\r\n\r\nn=" + strBytes},
        {"POST", "<INPUT TYPE=HIDDEN>", "POST /f HTTP/1.0\r\n\r\n"},
        {"POST", strMany, "POST /f HTTP/1.0\r\n\r\n" + strPairs},
    };
    for (const auto &testCase : aCases) {
        ClickLast("<FORM ACTION=\"http://" + server.strAddress + "/f\" METHOD=" + testCase.lpszMethod + ">" +
                  testCase.strControls + "<BR><INPUT TYPE=SUBMIT>");
        EXPECT_EQ(server.TakeRequest(), testCase.strRequest);
    }
}

TEST_F(FormTest, SizeAndLengthHaveTheirLimits) {
    const char *const aCases[] = {"20 256 ",
                                  "20 256 SIZE=1",
                                  "2 256 SIZE=2",
                                  "399 256 SIZE=399 size=x",
                                  "20 256 SIZE=400",
                                  "20 256 SIZE=2147483650",
                                  "20 256 MAXLENGTH=10",
                                  "20 11 MAXLENGTH=11",
                                  "20 1023 MAXLENGTH=1023",
                                  "20 256 MAXLENGTH=1024"};
    for (const char *lpszCase : aCases) {
        int nSize = 0, nLength = 0, nTag = 0;
        ASSERT_EQ(sscanf(lpszCase, "%d %d %n", &nSize, &nLength, &nTag), 2);
        ParsedPage page(std::string("<INPUT ") + (lpszCase + nTag) + ">", 400);
        page->OnKeyDown(9);
        for (int i = 0; i < 1100; ++i)
            page->OnChar('x');
        page->Render(Buffer());
        const auto *lpField = static_cast<TextInput *>(page->_lpChildren->lpData);
        EXPECT_EQ(lpField->_rc, Rect(0, 0, 10 * nSize + 6, 25)) << lpszCase;
        EXPECT_EQ(strlen(lpField->_lpszValue), static_cast<size_t>(nLength)) << lpszCase;
    }
}

TEST_F(FormTest, ControlsAreBoxesInTheirLines) {
    const std::pair<const char *, const char *> aCases[] = {
        {"a<INPUT SIZE=2></INPUT><INPUT TYPE=HIDDEN><INPUT TYPE=SUBMIT VALUE=ab><INPUT TYPE=RADIO><INPUT "
         "TYPE=SUBMIT>b",
         "0,0 10x18 \"a\"\n10,0 26x25 box\n0,0 0x0 box\n36,0 34x26 box\n70,0 14x26 box\n84,0 10x18 \"b\"\n"},
        {"a<FORM><INPUT SIZE=2>", "0,0 10x18 \"a\"\n10,0 26x25 box\n"},
        {"a<FORM ACTION=x><INPUT SIZE=2>", "0,0 10x18 \"a\"\n0,18 26x25 box\n"},
        {"a<BR><FORM ACTION=x><INPUT SIZE=2>", "0,0 10x18 \"a\"\n0,18 26x25 box\n"},
        {"<INPUT SIZE=2><INPUT SIZE=7>", "0,0 26x25 box\n0,25 76x25 box\n"},
        {"<TABLE><TD><INPUT SIZE=7><INPUT SIZE=2></TD><TD>b</TABLE>",
         "0,0 76x25 box\n0,25 26x25 box\n76,0 10x18 \"b\"\n"},
        {"<CENTER><TABLE><TD><INPUT SIZE=2><INPUT SIZE=2></TD></TABLE>",
         "24,0 26x25 box\n24,25 26x25 box\n"}};
    for (const auto &[lpszHTML, lpszDump] : aCases)
        EXPECT_EQ(ParsedPage(lpszHTML, 100).Dump(), lpszDump) << lpszHTML;
}

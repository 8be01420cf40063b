// A page that is acted on line by line, the way the files in pages/ say; pages/README.md tells what a line may be.
#pragma once

#include <functional>
#include <map>
#include <sstream>

#include "engine_fixture.h"

// The bytes that a text of a script stands for: "\n", "\r", "\t", "\0", "\xA9" and "\\"; "{1000*ab}" for ab a
// thousand times; "[30x20]" for a picture of that size that never comes. With nFewer, so many times
// fewer than written.
std::string Expand(const std::string &strText, int nFewer = 1);

class PageScript : public EngineTest {
  protected:
    void SetUp() override {}
    void TearDown() override {}
    // Each script has an engine and a clock of its own; the clock stands still.
    void StartScript(int nWidth, int nHeight);
    void EndScript();
    // Does what a line asks for. Returns what comes of it, in lines.
    std::string Act(const std::string &strLine);

  private:
    // What a line may begin with, and what is done then with the rest of it.
    using Verbs = std::map<std::string, std::function<std::string()>>;

    Verbs PageVerbs(std::istringstream &words, const Rect &rc);
    Verbs EngineVerbs(std::istringstream &words);
    Verbs TextVerbs(std::istringstream &words, std::string &strName);
    // The Page that is acted on: the one that was parsed here, or what the engine shows; may be null.
    Page *Shown() { return _lpParsed ? _lpParsed->Get() : g_lpMainFrame->_lpPage; }
    std::string Look();
    std::string Control();
    std::string Use(std::istringstream &words);
    // Wait for what an action has begun, unless others have to wait for their turn.
    std::string Settle();
    std::string SettleAndLook();
    std::string Parse(const std::string &strHTML);
    std::string Open(const std::string &strURL);
    std::string Send(const std::string &strEvent, int x, int y);
    void Paint(bool bOver);
    std::string CountColors(const Rect &rc);
    std::string Picture(const Rect &rc);
    void ReplacePage();
    void Hold();
    std::string UseField(std::istringstream &words);

    std::unique_ptr<ParsedPage> _lpParsed;
    Size _szPage, _szBuffer;
    std::vector<std::string> _views;
    std::string _strURLs;                        // the history when last looked at
    std::unique_ptr<FetchTurn::Waiter> _lpTurn;  // while the turn to fetch is held here
};

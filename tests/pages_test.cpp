// Runs the scripts in pages/. A script is a name behind "== ", then lines that act on a page, each with what
// comes of it below it, four spaces in. With TESSEL_REBASELINE set, what comes of them is written into the files.
#include <algorithm>
#include <filesystem>
#include <fstream>

#include "page_script.h"

namespace {

// The names of the files, without what stands behind the dot.
std::vector<std::string> Files() {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(TESSEL_PAGES)) {
        if (entry.path().extension() == ".txt")
            names.push_back(entry.path().stem().string());
    }
    std::ranges::sort(names);
    return names;
}

std::string Indented(const std::string &strText) {
    std::istringstream lines(strText);
    std::string strIndented;
    for (std::string strLine; std::getline(lines, strLine);) {
        strLine.erase(strLine.find_last_not_of(' ') + 1);
        strIndented += strLine.empty() ? "" : "    " + strLine + "\n";
    }
    return strIndented;
}

// The first line that differs, with what was asked for above it.
std::string Difference(const std::string &strExpected, const std::string &strActual) {
    std::istringstream expected(strExpected), actual(strActual);
    std::string strWanted, strGot, strAction;
    while (std::getline(actual, strGot) && std::getline(expected, strWanted) && strGot == strWanted)
        strAction = strGot.starts_with(' ') ? strAction : strGot;
    return strAction + "\n  expected: " + strWanted + "\n  actual:   " + strGot;
}

}  // namespace

class PagesTest : public PageScript, public ::testing::WithParamInterface<std::string> {
  protected:
    // The text of a script with what really comes of it.
    std::string Play(const std::string &strScript) {
        std::istringstream lines(strScript);
        std::string strPlayed;
        StartScript(400, 300);
        for (std::string strLine; std::getline(lines, strLine);) {
            if (strLine.starts_with("    "))
                continue;
            strPlayed += strLine + "\n";
            if (!strLine.empty() && !strchr("=#", strLine[0]))
                strPlayed += Indented(Act(strLine));
        }
        EndScript();
        return strPlayed;
    }
};

TEST_P(PagesTest, EachScriptComesOutAsWritten) {
    const std::string strFile = TESSEL_PAGES "/" + GetParam() + ".txt";
    const std::string strText = Contents(strFile);
    std::string strPlayed = strText.substr(0, strText.find("== "));
    for (size_t nPos = strPlayed.size(); nPos < strText.size();) {
        const std::string strScript = strText.substr(nPos, strText.find("\n== ", nPos) - nPos + 1);
        const std::string strPlayedScript = Play(strScript);
        EXPECT_TRUE(strPlayedScript == strScript || getenv("TESSEL_REBASELINE"))
            << strFile << ": " << strScript.substr(3, strScript.find('\n') - 3) << "\n"
            << Difference(strScript, strPlayedScript);
        strPlayed += strPlayedScript;
        nPos += strScript.size();
    }
    if (getenv("TESSEL_REBASELINE"))
        std::ofstream(strFile, std::ios::binary) << strPlayed;
}

INSTANTIATE_TEST_SUITE_P(In, PagesTest, ::testing::ValuesIn(Files()),
                         [](const auto &file) { return file.param; });

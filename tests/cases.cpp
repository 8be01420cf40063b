#include "cases.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

static std::string Trim(const std::string &str) {
    const size_t nStart = str.find_first_not_of(' ');
    return nStart == str.npos ? "" : str.substr(nStart, str.find_last_not_of(' ') + 1 - nStart);
}

Cases::Cases(const std::string &strFile) {
    std::ifstream file(TESSEL_CASES "/" + strFile);
    for (std::string line, heading; std::getline(file, line);) {
        line = line.substr(0, line.find('#'));
        const size_t nName = line.find(" = ");
        if (Trim(line).empty())
            continue;
        if (line[0] == ' ') {
            _rows.push_back({heading});
            std::istringstream fields(line);
            for (std::string field; std::getline(fields, field, '|');)
                _rows.back().push_back(Trim(field));
            _rows.back().resize(8);
        } else if (nName != line.npos) {
            names[Trim(line.substr(0, nName))] = line.substr(nName + 3);
        } else {
            heading = Trim(line);
        }
    }
}

std::vector<std::vector<std::string>> Cases::Under(const std::string &strHeading) const {
    std::vector<std::vector<std::string>> rows;
    for (const auto &row : _rows) {
        if (row[0].starts_with(strHeading))
            rows.push_back(row);
    }
    EXPECT_FALSE(rows.empty()) << strHeading;
    return rows;
}

std::string Cases::Bytes(const std::string &strWords) const {
    std::string strBytes;
    for (size_t i = 0, nEnd; i < strWords.size(); i = nEnd + 1) {
        nEnd =
            std::min(strWords.find(' ', strWords[i] == '"' ? strWords.find('"', i + 1) : i), strWords.size());
        const std::string strWord = strWords.substr(i, nEnd - i);
        const size_t nStar = strWord.find_last_of("*\"");
        const bool bTimes = nStar != strWord.npos && strWord[nStar] == '*';
        const std::string strPiece = Word(bTimes ? strWord.substr(0, nStar) : strWord);
        for (size_t n = bTimes ? std::stoul(strWord.substr(nStar + 1)) : 1; n > 0; --n)
            strBytes += strPiece;
    }
    return strBytes;
}

std::string Cases::Word(const std::string &strWord) const {
    if (names.contains(strWord))
        return Bytes(names.at(strWord));
    std::string strBytes;
    if (strWord[0] == '"') {
        for (size_t i = 1; i + 1 < strWord.size(); ++i) {
            const bool bEscape = strWord[i] == '\\';
            i += bEscape;
            strBytes += !bEscape ? strWord[i] : strWord[i] == 'r' ? '\r' : strWord[i] == 'n' ? '\n' : '\\';
        }
        return strBytes;
    }
    const bool bBits = strWord[0] == ':';
    const std::string strDigits =
        strWord.substr(bBits) + std::string(bBits ? (17 - strWord.size() % 8) % 8 : 0, '1');
    for (size_t i = 0; i < strDigits.size(); i += bBits ? 8 : 2) {
        strBytes += static_cast<char>(std::stoi(strDigits.substr(i, bBits ? 8 : 2), nullptr, bBits ? 2 : 16));
        if (bBits && strBytes.back() == '\xFF')
            strBytes += '\0';
    }
    return strBytes;
}

// A text that is put together of pieces whose lengths a page decides.
#pragma once

#include <cstddef>
#include <cstring>
#include <new>

class TextBuilder {
  public:
    TextBuilder() = default;
    ~TextBuilder() { delete[] _lpszText; }
    TextBuilder(const TextBuilder &) = delete;
    TextBuilder &operator=(const TextBuilder &) = delete;

    // Once memory has run out, the text is lost for good.
    TextBuilder &Append(const char *lpsz) {
        const size_t nMore = strlen(lpsz);
        if (Reserve(nMore)) {
            memcpy(_lpszText + _nLength, lpsz, nMore + 1);
            _nLength += nMore;
        }
        return *this;
    }

    void CutLast() {
        if (_nLength)
            _lpszText[--_nLength] = '\0';
    }

    // Null if it is lost, or nothing has been appended yet. Valid until the next change.
    const char *Text() const { return _lpszText; }
    size_t Length() const { return _nLength; }

  private:
    bool Reserve(size_t nMore) {
        if (_bLost || _nLength + nMore < _nSize)
            return !_bLost;
        const size_t nSize = 2 * (_nLength + nMore) + 1;
        char *lpszLarger = new (std::nothrow) char[nSize];
        if (lpszLarger && _lpszText)
            memcpy(lpszLarger, _lpszText, _nLength);
        delete[] _lpszText;
        _lpszText = lpszLarger;
        _nSize = nSize;
        _bLost = !lpszLarger;
        _nLength = _bLost ? 0 : _nLength;
        return !_bLost;
    }

    char *_lpszText = nullptr;
    size_t _nLength = 0;
    size_t _nSize = 0;  // of the array
    bool _bLost = false;
};

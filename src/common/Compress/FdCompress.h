// The compression stage of the result path: a work space and the decision whether an input is worth
// compressing. It holds no coder yet, so neither operation produces data. Processing thread only.
#pragma once

constexpr int DEFAULT_COMPRESS_SPACE_SIZE = 65536;

class FdCompress {
public:
    FdCompress();
    virtual ~FdCompress();
    FdCompress(const FdCompress&) = delete;
    FdCompress& operator=(const FdCompress&) = delete;

    bool setMinCompressSize(int minSize);
    bool setMinThreshold(int threshold);  // at most 1000

    // Makes sure that the work space holds `length` bytes. It never shrinks.
    bool getMallocEncodeMemory(int length);
    char* getSpace() { return m_space; }

    // Whether `data` is large enough to be compressed. `out` and `outSize` are not touched.
    bool compressData(char* data, int size, int type, char*& out, int& outSize);
    bool uncompressData(char* cmprData, int compressSize, int type, int size, char*& out);

private:
    char* m_space;
    int m_spaceSize;
    int m_minCompressSize;
    int m_minThreshold;
};

#pragma once
// One frame received from the CSMS: its text and the document read from it,
// in one heap object that travels from the transport to the protocol engine.
#include <rapidjson/document.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

class CInboundFrame {
public:
    // Takes over `text` (malloc'd, NUL at text[len]) and reads it once. A frame
    // that is not JSON, nests too deep or is larger than kMaxBytes keeps its text
    // and has no document.
    static std::unique_ptr<CInboundFrame> Adopt(char* text, size_t len);
    static std::unique_ptr<CInboundFrame> Copy(const char* text, size_t len);
    ~CInboundFrame();
    CInboundFrame(const CInboundFrame&) = delete;
    CInboundFrame& operator=(const CInboundFrame&) = delete;

    const char* Text() const { return m_text; }
    size_t Length() const { return m_len; }
    bool Parsed() const { return m_parsed; }
    const rapidjson::Document& Document() const { return m_doc; }

    // The OCPP-J head: element 0 an integer and element 1 a string.
    bool HasHead() const;
    int Type() const;  // element 0, or -1 without a head
    std::string Id() const;  // element 1, empty without a head

    // The text for the log: every idToken string member shown as its hash. A
    // frame without one is given back as received.
    std::string MaskedText() const;
    // True when the log needs MaskedText(); otherwise Text() can go out as it is.
    bool HasIdToken() const;

    // Head of a frame text from its first bytes (the rest is not read); false
    // when there is none.
    static bool ReadHead(const char* text, size_t len, int& type, std::string& id);

    // Message id of a CALL from the first bytes of a frame that is not read
    // whole (too large); false when the head is not there or not a CALL.
    static bool PeekCallId(const char* text, size_t len, std::string& id);

    static const size_t kMaxBytes = 4u * 1024u * 1024u;
    // Largest CSMS frame the transport takes in; the host may change it.
    static size_t MaxReceiveBytes();
    static void SetMaxReceiveBytes(size_t bytes);
    static const size_t kDefaultReceiveBytes = 1024u * 1024u;
    // After a frame this large dies (or is refused) the heap is handed back to the system.
    static const size_t kGiveBackBytes = 256u * 1024u;
    static void GiveBackHeap();

private:
    CInboundFrame(char* text, size_t len);

    char* m_text;
    size_t m_len;
    bool m_parsed = false;
    // Sized to the text: a queue of small frames must not hold a default-sized pool each.
    rapidjson::MemoryPoolAllocator<> m_pool;
    rapidjson::Document m_doc;
};

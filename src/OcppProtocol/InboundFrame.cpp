#include "OcppProtocol/InboundFrame.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "Ocpp20/Protocol/JsonText.h"
#include "Util/Tools.h"

namespace {

std::atomic<size_t> g_maxReceiveBytes{CInboundFrame::kDefaultReceiveBytes};

const unsigned kParseFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseFullPrecisionFlag;

bool ReadDocument(rapidjson::Document& doc, const char* text, size_t len) {
    if (text == nullptr || len > CInboundFrame::kMaxBytes || !CJsonText::DepthWithin(text, len)) return false;
    doc.Parse<kParseFlags>(text, len);
    return !doc.HasParseError();
}

bool HeadOf(const rapidjson::Value& doc, int& type, std::string& id) {
    // IsInt() refuses 3000000000 and 1e10 as a message type.
    if (!doc.IsArray() || doc.Size() < 2 || !doc[0].IsInt() || !doc[1].IsString()) return false;
    type = doc[0].GetInt();
    id.assign(doc[1].GetString(), doc[1].GetStringLength());
    return true;
}

bool ContainsIdToken(const rapidjson::Value& v) {
    if (v.IsObject()) {
        for (auto m = v.MemberBegin(); m != v.MemberEnd(); ++m) {
            if (m->value.IsString() && std::strcmp(m->name.GetString(), "idToken") == 0) return true;
            if (ContainsIdToken(m->value)) return true;
        }
    } else if (v.IsArray()) {
        for (auto e = v.Begin(); e != v.End(); ++e) {
            if (ContainsIdToken(*e)) return true;
        }
    }
    return false;
}

// Compact writer that puts the hash in place of an idToken member's string.
class MaskingWriter : public rapidjson::Writer<rapidjson::StringBuffer> {
public:
    typedef rapidjson::Writer<rapidjson::StringBuffer> Inner;
    explicit MaskingWriter(rapidjson::StringBuffer& out) : Inner(out) {}
    bool Key(const char* s, rapidjson::SizeType n, bool copy) {
        m_token = n == 7 && std::memcmp(s, "idToken", 7) == 0;
        return Inner::Key(s, n, copy);
    }
    bool String(const char* s, rapidjson::SizeType n, bool copy) {
        if (!m_token) return Inner::String(s, n, copy);
        m_token = false;
        const std::string hash = CTools::Hash12(std::string(s, n));
        return Inner::String(hash.data(), static_cast<rapidjson::SizeType>(hash.size()), true);
    }
    bool Null() { return Reset(), Inner::Null(); }
    bool Bool(bool b) { return Reset(), Inner::Bool(b); }
    bool Int(int i) { return Reset(), Inner::Int(i); }
    bool Uint(unsigned u) { return Reset(), Inner::Uint(u); }
    bool Int64(int64_t i) { return Reset(), Inner::Int64(i); }
    bool Uint64(uint64_t u) { return Reset(), Inner::Uint64(u); }
    bool Double(double d) { return Reset(), Inner::Double(d); }
    bool RawNumber(const char* s, rapidjson::SizeType n, bool copy) { return Reset(), Inner::RawNumber(s, n, copy); }
    bool StartObject() { return Reset(), Inner::StartObject(); }
    bool StartArray() { return Reset(), Inner::StartArray(); }

private:
    void Reset() { m_token = false; }
    bool m_token = false;
};

}  // namespace

namespace {
// A frame's document takes about twice its text; large frames grow in RapidJSON's usual 64 KiB chunks.
size_t PoolChunkFor(size_t len) {
    const size_t kUsualChunk = 64 * 1024;
    const size_t chunk = 2 * len + 256;
    return chunk < kUsualChunk ? chunk : kUsualChunk;
}
}  // namespace

CInboundFrame::CInboundFrame(char* text, size_t len)
    : m_text(text), m_len(len), m_pool(PoolChunkFor(len)), m_doc(&m_pool) {}

CInboundFrame::~CInboundFrame() {
    free(m_text);
    // The document's pool goes first, so that the heap handed back includes it.
    rapidjson::Document().Swap(m_doc);
    m_pool.Clear();
    if (m_len >= kGiveBackBytes) GiveBackHeap();
}

void CInboundFrame::GiveBackHeap() {
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}

std::unique_ptr<CInboundFrame> CInboundFrame::Adopt(char* text, size_t len) {
    if (text == nullptr) return nullptr;
    std::unique_ptr<CInboundFrame> frame(new (std::nothrow) CInboundFrame(text, len));
    if (!frame) {
        free(text);
        return nullptr;
    }
    frame->m_parsed = ReadDocument(frame->m_doc, text, len);
    if (!frame->m_parsed) frame->m_doc.SetNull();
    return frame;
}

std::unique_ptr<CInboundFrame> CInboundFrame::Copy(const char* text, size_t len) {
    if (text == nullptr && len > 0) return nullptr;
    char* own = static_cast<char*>(malloc(len + 1));
    if (own == nullptr) return nullptr;
    if (len > 0) memcpy(own, text, len);
    own[len] = '\0';
    return Adopt(own, len);
}

bool CInboundFrame::HasHead() const {
    int type;
    std::string id;
    return m_parsed && HeadOf(m_doc, type, id);
}

int CInboundFrame::Type() const {
    int type = -1;
    std::string id;
    return m_parsed && HeadOf(m_doc, type, id) ? type : -1;
}

std::string CInboundFrame::Id() const {
    int type;
    std::string id;
    if (!m_parsed || !HeadOf(m_doc, type, id)) id.clear();
    return id;
}

bool CInboundFrame::HasIdToken() const { return m_parsed && ContainsIdToken(m_doc); }

std::string CInboundFrame::MaskedText() const {
    if (!HasIdToken()) return std::string(m_text, m_len);
    rapidjson::StringBuffer out;
    MaskingWriter writer(out);
    m_doc.Accept(writer);
    return std::string(out.GetString(), out.GetSize());
}

bool CInboundFrame::ReadHead(const char* text, size_t len, int& type, std::string& id) {
    if (text == nullptr) return false;
    size_t i = 0;
    auto skipSpace = [&] {
        while (i < len && (text[i] == ' ' || text[i] == '\t' || text[i] == '\n' || text[i] == '\r')) ++i;
    };
    auto expect = [&](char c) {
        skipSpace();
        if (i >= len || text[i] != c) return false;
        ++i;
        return true;
    };
    if (!expect('[')) return false;
    skipSpace();
    // Every OCPP-J message type is one digit.
    if (i >= len || text[i] < '0' || text[i] > '9') return false;
    const int value = text[i++] - '0';
    if (!expect(',')) return false;
    skipSpace();
    const size_t start = i;
    if (i >= len || text[i] != '"') return false;
    // Only a short string literal is worth reading; the rest of the frame is not looked at.
    for (++i; i < len && i - start < 1024; ++i) {
        if (text[i] == '\\') {
            ++i;
        } else if (text[i] == '"') {
            rapidjson::Document doc;
            doc.Parse<kParseFlags>(text + start, i + 1 - start);
            if (doc.HasParseError() || !doc.IsString()) return false;
            type = value;
            id.assign(doc.GetString(), doc.GetStringLength());
            return true;
        }
    }
    return false;
}

bool CInboundFrame::PeekCallId(const char* text, size_t len, std::string& id) {
    int type = 0;
    std::string head;
    if (!ReadHead(text, len, type, head) || type != 2) return false;
    id = std::move(head);
    return true;
}

size_t CInboundFrame::MaxReceiveBytes() { return g_maxReceiveBytes.load(); }

void CInboundFrame::SetMaxReceiveBytes(size_t bytes) {
    // The reader's own ceiling still bounds what one frame may cost.
    if (bytes == 0 || bytes > kMaxBytes) bytes = kMaxBytes;
    g_maxReceiveBytes.store(bytes);
}


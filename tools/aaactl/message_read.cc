// SPDX-License-Identifier: Apache-2.0
//
// From bytes to parts. A kind of message is a sequence of elements, taken from
// the front; the first one that is not what it should be is the fault and ends
// the reading. Whether a list is well-formed is the library's decision, see
// message.hpp.

#include <algorithm>
#include <cstring>
#include <memory>

#include "aaa/checked.h"
#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "message.hpp"
#include "output.hpp"

namespace aaactl {
namespace {

constexpr size_t kListHeader = 56;
constexpr size_t kPairHead = 16;
constexpr size_t kFullPacket = 336;  // a request record has room for every type
constexpr size_t kMostData = 255;
constexpr uint32_t kLast = 26;  // the highest type that has session packets
constexpr size_t kMostPairs = 65535;

uint32_t be32(std::string_view bytes, size_t at) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i) {
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    }
    return value;
}

std::string count_of(size_t n, const char *what) {
    return std::to_string(n) + " " + what + (n == 1 ? "" : "s");
}

// What the library says about the bytes as a packed list.
cerrno verdict(std::string_view bytes) {
    avlist *list = nullptr;
    const cerrno made = aaa_avpair_create_list(nullptr, &list);
    if (made != AAA_OK) {
        throw Failure("cannot check the list", made);
    }
    const std::unique_ptr<avlist, void (*)(avlist *)> owner(list, aaa_avpair_free_list);
    return aaa_avpair_unpack_msg_checked(list, bytes.data(), bytes.size());
}

bool is_whole_list(std::string_view bytes) {
    return bytes.size() >= kListHeader && be32(bytes, 0) == bytes.size() && verdict(bytes) == AAA_OK;
}

class Reader {
  public:
    Reader(std::string_view bytes, std::string_view kind) : bytes_(bytes) { message_.kind = kind; }

    Message take() { return std::move(message_); }
    bool ok() const { return !message_.fault; }
    size_t left() const { return bytes_.size() - at_; }
    size_t at() const { return at_; }
    std::string_view rest() const { return bytes_.substr(at_); }

    // Only the first fault counts; later ones often follow from it.
    void fail(size_t offset, std::string what, cerrno rc) {
        if (ok()) {
            message_.fault = Fault{offset, std::move(what), rc};
        }
    }
    const Record *record(const char *name) {
        const RecordLayout *layout = record_layout(name);
        if (!has(layout->size, std::string("the record ") + name)) {
            return nullptr;
        }
        return &std::get<Record>(add(Record{layout, std::string(next(layout->size))}));
    }
    void bytes(const char *name, size_t size) {
        if (has(size, name)) {
            add(Bytes{name, std::string(next(size)), false});
        }
    }
    // What the sender never wrote; without a part when there is nothing.
    void leftover(const char *name, size_t size) {
        if (ok() && size != 0 && has(size, name)) {
            add(Bytes{name, std::string(next(size)), true});
        }
    }
    void remainder(const char *name) {
        if (ok()) {
            add(Bytes{name, std::string(next(left())), false});
        }
    }
    void list();
    void optional_list() {
        if (ok() && left() != 0) {
            list();
        }
    }
    void end();

  private:
    bool has(size_t size, const std::string &what) {
        if (ok() && left() < size) {
            fail(at_, what + " needs " + count_of(size, "byte") + ", there are " + std::to_string(left()),
                 AAA_ERR_INVALID_MSG_SIZE);
        }
        return ok();
    }
    std::string_view next(size_t size) {
        at_ += size;
        return bytes_.substr(at_ - size, size);
    }
    template <typename Content>
    std::variant<Record, Bytes, List> &add(Content content) {
        const size_t size = size_of(content);
        message_.parts.push_back({at_ - size, std::move(content)});
        return message_.parts.back().content;
    }
    static size_t size_of(const Record &record) { return record.bytes.size(); }
    static size_t size_of(const Bytes &bytes) { return bytes.bytes.size(); }
    static size_t size_of(const List &) { return kListHeader; }

    void check_header(size_t begin, uint32_t total);
    void pairs(std::vector<Pair> &pairs, size_t end);
    bool pair(Pair &pair, size_t end);
    void check_count(size_t begin, const List &list);

    std::string_view bytes_;
    size_t at_ = 0;
    Message message_;
};

// A list tells where it ends and readers ignore what is behind; nothing else does.
void Reader::end() {
    if (ok() && std::holds_alternative<List>(message_.parts.back().content)) {
        leftover("trailing", left());
    } else if (left() != 0) {
        fail(at_, count_of(left(), "byte") + " too many", AAA_ERR_INVALID_MSG_SIZE);
    }
}

void Reader::check_header(size_t begin, uint32_t total) {
    const size_t available = bytes_.size() - begin;
    if (total < kListHeader || total > available || total % 4 != 0) {
        fail(begin,
             "total length " + std::to_string(total) +
                 (total < kListHeader ? ", at least 56 is needed"
                  : total % 4 != 0    ? " is not a multiple of 4"
                                      : ", but there are only " + count_of(available, "byte")),
             AAA_ERR_INVALID_MSG_SIZE);
    }
    if (bytes_.substr(begin + 24, 31).find('\0') == std::string_view::npos) {
        fail(begin + 24, "the name of the list has no end", AAA_ERR_AVPAIR_PROCESSING);
    }
}

// One pair, which has to end at `end` at the latest.
bool Reader::pair(Pair &pair, size_t end) {
    if (end - at_ < kPairHead) {
        fail(at_, "a pair's head needs 16 bytes, there are " + std::to_string(end - at_),
             AAA_ERR_AVPAIR_PROCESSING);
        return false;
    }
    pair.offset = at_;
    pair.type = be32(bytes_, at_);
    pair.tag = be32(bytes_, at_ + 4);
    pair.flags = be32(bytes_, at_ + 12);
    const size_t length = be32(bytes_, at_ + 8);
    const size_t padding = (4 - length % 4) % 4;
    if (length + padding > end - at_ - kPairHead) {
        fail(at_ + 8,
             "the value of a pair of type " + std::to_string(pair.type) + " has a length of " +
                 std::to_string(length) + ", but there are only " + count_of(end - at_ - kPairHead, "byte"),
             AAA_ERR_AVPAIR_PROCESSING);
        return false;
    }
    at_ += kPairHead;
    pair.value = next(length);
    pair.padding = next(padding);
    return true;
}

void Reader::pairs(std::vector<Pair> &pairs, size_t end) {
    while (at_ < end) {
        Pair next_pair;
        if (!pair(next_pair, end)) {
            return;
        }
        pairs.push_back(std::move(next_pair));
    }
}

void Reader::check_count(size_t begin, const List &list) {
    const size_t live = list.live();
    const bool counted = list.header.number("count") != 0;
    if (counted != (live != 0)) {
        fail(begin + 6,
             counted ? "the count is not zero, but there is no live pair"
                     : "the count is zero, but not the number of live pairs, " + std::to_string(live),
             AAA_ERR_AVPAIR_PROCESSING);
    } else if (!list.pairs.empty() && list.pairs.back().deleted()) {
        fail(list.pairs.back().offset, "the last pair is a deleted one", AAA_ERR_AVPAIR_PROCESSING);
    } else if (live > kMostPairs) {
        fail(begin + 6, "more pairs than a list can count", AAA_ERR_AVPAIR_PROCESSING);
    }
}

// Reads on behind a fault in the header as far as that is safe: pairs are
// bounded by what is there, whatever the header says.
void Reader::list() {
    if (!has(kListHeader, "a list's header")) {
        return;
    }
    const size_t begin = at_;
    List list = empty_list();
    list.header.bytes = next(kListHeader);
    const uint32_t total = static_cast<uint32_t>(list.header.number("total"));
    check_header(begin, total);
    const size_t end = std::min<size_t>(bytes_.size(), begin + std::max<size_t>(total, kListHeader));
    pairs(list.pairs, end);
    if (ok()) {
        check_count(begin, list);
    }
    const cerrno library = verdict(bytes_.substr(begin));
    if (ok() && library != AAA_OK) {
        fail(begin, "the library refuses the list", library);
    }
    message_.parts.push_back({begin, std::move(list)});
}

// ---- Classic messages -----------------------------------------------------------

void read_list(Reader &reader) {
    reader.list();
    reader.end();
}

void read_connect(Reader &reader) {
    const Record *header = reader.record("request-connect");
    if (header == nullptr) {
        return;
    }
    const size_t length = header->number("text1_length");
    if (length > reader.left()) {
        reader.fail(64,
                    "the first text has a length of " + std::to_string(length) + ", but there are only " +
                        count_of(reader.left(), "byte"),
                    AAA_ERR_INVALID_MSG_SIZE);
        return;
    }
    reader.bytes("text1", length);
    reader.remainder("text2");
}

void read_plain(Reader &reader) {
    reader.record("request-32");
    reader.end();
}

void read_plain_text(Reader &reader) {
    reader.record("request-32");
    reader.remainder("text");
}

void read_plain_list(Reader &reader) {
    reader.record("request-32");
    reader.list();
    reader.end();
}

void read_callback(Reader &reader) {
    reader.record("request-36");
    reader.end();
}

void read_with_list(Reader &reader) {
    reader.record("request-40");
    reader.list();
    reader.end();
}

void read_with_block(Reader &reader) {
    reader.record("request-40");
    reader.bytes("block", 64);
    reader.list();
    reader.end();
}

void read_update(Reader &reader) {
    reader.record("request-40");
    reader.bytes("block", 64);
    reader.bytes("session", 4);
    reader.list();
    reader.end();
}

using ReadFunction = void (*)(Reader &);

// The form of a request by its type; null for a type that no classic message has.
ReadFunction request_form(uint32_t type) {
    switch (type) {
        case AAA_REQ_CONNECT:
            return read_connect;
        case AAA_REQ_DISCONNECT:
        case AAA_REQ_PING:
            return read_plain;
        case AAA_REQ_CALLBACK:
            return read_callback;
        case AAA_REQ_AUTHEN:
        case AAA_REQ_AUTHOR:
        case AAA_REQ_ACCT:
        case AAA_REQ_FREE_USERDATA:
            return read_with_list;
        case AAA_REQ_AUTHEN_ASYNC:
        case AAA_REQ_AUTHOR_ASYNC:
        case AAA_REQ_ACCT_ASYNC:
            return read_with_block;
        case AAA_REQ_ACCT_UPDATE:
            return read_update;
        case AAA_REQ_TASKMAP:
        case AAA_REQ_USERGROUP:
            return read_plain_text;
        case AAA_REQ_IKEPOST:
        case AAA_REQ_COMPOSED_INCREMENT:
        case AAA_REQ_COMPOSED_DECREMENT:
            return read_plain_list;
        default:
            return type >= AAA_REQ_CFG_RADSVR && type <= AAA_REQ_CFG_AUTHORLIST ? read_with_list : nullptr;
    }
}

uint32_t host_word(std::string_view bytes, size_t at) {
    uint32_t value = 0;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

void read_request(Reader &reader) {
    if (reader.left() < 32) {
        read_plain(reader);  // says what is missing
        return;
    }
    const uint32_t type = host_word(reader.rest(), 20);
    if (const ReadFunction form = request_form(type)) {
        form(reader);
        return;
    }
    reader.record("request-32");
    reader.fail(20, "no request has the type " + std::to_string(type), AAA_ERR_INVALID_MSG_TYPE);
}

// A request of one type only.
void require_type(Reader &reader, bool fits, const char *what) {
    if (reader.ok() && !fits) {
        reader.fail(20, what, AAA_ERR_INVALID_MSG_TYPE);
    }
}

void read_config(Reader &reader) {
    const uint32_t type = reader.left() >= 32 ? host_word(reader.rest(), 20) : 0;
    read_request(reader);
    require_type(reader, type >= AAA_REQ_CFG_RADSVR && type <= AAA_REQ_CFG_AUTHORLIST,
                 "no configuration message: its type is none of 17 to 23");
}

void read_server_connect(Reader &reader) {
    if (const Record *header = reader.record("request-40")) {
        require_type(reader, header->number("type") == AAA_REQ_CONNECT,
                     "no connect message: its type is not 0");
    }
    reader.bytes("block", 64);
    reader.end();
}

void read_server_disconnect(Reader &reader) {
    if (const Record *header = reader.record("request-server-disconnect")) {
        require_type(reader, header->number("type") == AAA_REQ_DISCONNECT,
                     "no disconnect message: its type is not 1");
    }
    reader.bytes("data", 4);
    reader.end();
}

// ---- Replies --------------------------------------------------------------------

void read_reply(Reader &reader) {
    reader.record("reply-24");
    reader.optional_list();
    reader.end();
}

void read_reply_host(Reader &reader) {
    reader.record("reply-24-host-order");
    reader.end();
}

void read_reply_plain(Reader &reader) {
    reader.record("reply-20");
    reader.end();
}

void read_reply_callback(Reader &reader) {
    reader.record("reply-callback");
    reader.list();
    reader.end();
}

void read_reply_config(Reader &reader) {
    reader.record("reply-config");
    reader.end();
}

void read_reply_connect(Reader &reader) {
    reader.record("reply-connect");
    reader.end();
}

void read_reply_data(Reader &reader) {
    reader.record("reply-20");
    reader.remainder("data");
}

// ---- Session packets ------------------------------------------------------------

// The header, and the message type; null when it is none.
const Record *session_header(Reader &reader) {
    const Record *header = reader.record("session");
    if (header == nullptr) {
        return nullptr;
    }
    if (header->number("marker") != 16) {
        reader.fail(0, "the first word is not 16", AAA_ERR_INVALID_MSG_TYPE);
    } else if (header->number("magic") != 0x414e) {
        reader.fail(36, "the magic is not 0x414e", AAA_ERR_INVALID_MSG_TYPE);
    } else if (header->number("version") != 2) {
        reader.fail(52, "the version is not 2", AAA_ERR_UNSUPPORTED_VERSION);
    }
    return reader.ok() ? header : nullptr;
}

bool has_type_data(uint32_t type) {
    return type == AAA_REQ_TASKMAP || type == AAA_REQ_USERGROUP;
}

void read_type_data(Reader &reader, const char *layout) {
    const size_t at = reader.at();
    const Record *record = reader.record(layout);
    if (record == nullptr) {
        return;
    }
    const size_t length = record->number("length");
    if (length > kMostData) {
        reader.fail(at + 4, "data of " + std::to_string(length) + " bytes, at most 255 are possible",
                    AAA_ERR_INVALID_MSG_SIZE);
        return;
    }
    reader.bytes("data", length);
    reader.leftover("unused", kMostData - length);
}

void read_request_payload(Reader &reader, uint32_t type) {
    if (has_type_data(type)) {
        read_type_data(reader, "session-data");
    } else if (type <= kLast) {
        reader.record(type == AAA_REQ_CONNECT           ? "session-connect"
                      : type == AAA_REQ_GET_LARGE_REPLY ? "session-large-reply"
                                                        : "session-value");
    }
}

// A sender may send the whole record, which has room for every type, or what
// the type needs. A list that fills the rest exactly tells the latter.
void read_session_request(Reader &reader) {
    const Record *header = session_header(reader);
    if (header == nullptr) {
        return;
    }
    read_request_payload(reader, static_cast<uint32_t>(header->number("type")));
    const size_t room = kFullPacket - std::min(kFullPacket, reader.at());
    if (reader.ok() && reader.left() >= room && !is_whole_list(reader.rest())) {
        reader.leftover("rest", room);
    }
    reader.optional_list();
    reader.end();
}

const char *response_layout(uint32_t type) {
    if (type == AAA_REQ_CONNECT) {
        return "session-reply-connect";
    }
    if (type == AAA_REQ_CALLBACK) {
        return "session-reply-callback";
    }
    const bool status = (type >= AAA_REQ_AUTHEN && type <= AAA_REQ_ACCT) || type == AAA_REQ_ACCT_ASYNC ||
                        type == AAA_REQ_ACCT_UPDATE;
    return status ? "session-reply-status" : "session-reply-error";
}

void read_session_response(Reader &reader) {
    const Record *header = session_header(reader);
    if (header == nullptr) {
        return;
    }
    const auto type = static_cast<uint32_t>(header->number("type"));
    if (type > kLast) {
        reader.fail(8, "there is no response of type " + std::to_string(type), AAA_ERR_INVALID_MSG_TYPE);
    } else if (has_type_data(type)) {
        read_type_data(reader, "session-reply-data");
        reader.leftover("rest", kFullPacket - std::min(kFullPacket, reader.at()));
    } else {
        reader.record(response_layout(type));
    }
    reader.optional_list();
    reader.end();
}

// ---- Kinds ----------------------------------------------------------------------

struct Kind {
    const char *name;
    ReadFunction read;
    const char *group;  // in which it is tried, besides "auto"; in this order
    bool detected;  // a reply is told apart from others only by its length: the rarer ones have to be named
};

constexpr Kind kKinds[] = {
    {"list", read_list, "list", true},
    {"session-request", read_session_request, "session", true},
    {"session-response", read_session_response, "session", true},
    {"request", read_request, "", true},
    {"config", read_config, "", false},
    {"server-connect", read_server_connect, "", true},
    {"server-disconnect", read_server_disconnect, "", true},
    {"reply-generic", read_reply, "reply", true},
    {"reply-callback", read_reply_callback, "reply", true},
    {"reply-config", read_reply_config, "reply", true},
    {"reply-connect", read_reply_connect, "reply", true},
    {"reply-accounting", read_reply_plain, "reply", true},
    {"reply-async-authentication", read_reply, "", false},
    {"reply-async-authorization", read_reply_host, "", false},
    {"reply-data", read_reply_data, "", false},
};

constexpr KindHelp kHelp[] = {
    {"auto", "whichever fits: a packed list, a session packet, a request, a reply"},
    {"list", "a packed list"},
    {"request", "a request of a classic message: header, blocks, list"},
    {"config", "the same, of types 17 to 23 only"},
    {"server-connect", "the server's side of connect"},
    {"server-disconnect", "the server's side of disconnect"},
    {"reply", "whichever reply fits; its header does not tell"},
    {"reply-generic", "reply to authentication, authorization and most others"},
    {"reply-async-authentication", "reply to the asynchronous form; no list"},
    {"reply-async-authorization", "the same, its status in host order"},
    {"reply-accounting", "reply to accounting, ping, ikepost and disconnect"},
    {"reply-callback", "reply to get callback"},
    {"reply-config", "reply to a configuration message"},
    {"reply-connect", "reply to connect"},
    {"reply-data", "reply to get task map and user group"},
    {"session", "a session packet, request or response, and its list"},
    {"session-request", "a session request and its list"},
    {"session-response", "a session response and its list"},
};

Message read_as(std::string_view bytes, const Kind &kind) {
    Reader reader(bytes, kind.name);
    kind.read(reader);
    return reader.take();
}

bool whole(const Message &message) {
    if (message.fault || message.parts.empty()) {
        return false;
    }
    const auto *last = std::get_if<Bytes>(&message.parts.back().content);
    return last == nullptr || last->name != "trailing";
}

// A list with a fault must not pass for a request, whose texts may be anything:
// its secrets would be shown as such.
bool looks_like_list(std::string_view bytes) {
    const auto zero = [&](size_t at, size_t size) {
        return bytes.substr(at, size).find_first_not_of('\0') == std::string_view::npos;
    };
    return bytes.size() >= kListHeader && !zero(0, 4) && zero(0, 1) && zero(8, 16) && zero(55, 1);
}

// A key of 0 is a request's, and types with data have the same size both ways.
bool is_session_response_first(std::string_view bytes) {
    return bytes.size() >= 8 && host_word(bytes, 0) == 16 && host_word(bytes, 4) != 0;
}

// How far a reading that failed got is how well the kind fits.
bool better(const Message &candidate, const Message &best) {
    if (candidate.fault.has_value() != best.fault.has_value()) {
        return !candidate.fault;
    }
    return candidate.fault && candidate.fault->offset > best.fault->offset;
}

Message read_group(std::string_view bytes, std::string_view group) {
    std::vector<Kind> candidates;
    for (const Kind &kind : kKinds) {
        if (group == "auto" ? kind.detected : group == kind.group) {
            candidates.push_back(kind);
        }
    }
    if (is_session_response_first(bytes)) {
        std::stable_partition(candidates.begin(), candidates.end(), [](const Kind &kind) {
            return std::string_view(kind.name) == "session-response";
        });
    }
    std::optional<Message> best;
    for (const Kind &kind : candidates) {
        Message message = read_as(bytes, kind);
        if (whole(message)) {
            return message;
        }
        if (!best || better(message, *best)) {
            best = std::move(message);
        }
    }
    return std::move(*best);
}

}  // namespace

std::span<const KindHelp> message_kinds() {
    return kHelp;
}

Message read_message(std::string_view bytes, std::string_view kind) {
    for (const Kind &known : kKinds) {
        if (kind == known.name) {
            return read_as(bytes, known);
        }
    }
    if (kind != "auto" && kind != "reply" && kind != "session") {
        throw Failure(ExitCode::bad_input, "no kind of message is called '" + escaped(kind) + "'");
    }
    return read_group(bytes, kind == "auto" && looks_like_list(bytes) ? "list" : kind);
}

}  // namespace aaactl

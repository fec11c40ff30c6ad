// Making, copying and giving back contents.
#include "message/content.h"

#include <algorithm>
#include <new>

#include "base/status.h"
#include "message/field_index.h"
#include "message/pool.h"

namespace quorl::message {

const uint8_t emptyImage[wire::headerSize] = {'Q', 'M', wire::version, 0, wire::headerSize, 0, 0, 0, 0, 0, 0, 0};

namespace {

uint8_t* ownImage(Content* content) noexcept {
    return reinterpret_cast<uint8_t*>(content + 1);
}

// Makes a content of a block, with nothing in it yet, not even an image's header. Null: there is no block.
Content* prepared(Content* content) noexcept {
    if (content == nullptr) return nullptr;
    content->references.store(1, std::memory_order_relaxed);
    content->image = ownImage(content);
    content->count = 0;
    content->depth = 0;
    content->sendLength = 0;
    content->replyLength = 0;
    content->base = nullptr;
    content->index.store(nullptr, std::memory_order_relaxed);
    content->longSend = nullptr;
    content->longReply = nullptr;
    content->shortSend[0] = '\0';
    content->shortReply[0] = '\0';
    return content;
}

Content* newBlock(size_t room) noexcept {
    return prepared(pool::acquire(room));
}

bool setSubject(std::string_view subject, char* brief, char*& lengthy, uint8_t& length) noexcept {
    char* to = brief;
    char* unused = lengthy;
    if (subject.size() >= Content::subjectRoom) {
        if (lengthy == nullptr) lengthy = static_cast<char*>(allocate(QUORL_SUBJECT_MAX + 1));
        if (lengthy == nullptr) return false;
        to = lengthy;
        unused = nullptr;
    }
    if (!subject.empty()) std::memmove(to, subject.data(), subject.size());
    to[subject.size()] = '\0';
    length = static_cast<uint8_t>(subject.size());
    if (unused != nullptr) {
        lengthy = nullptr;
        deallocate(unused);
    }
    return true;
}

}  // namespace

Content* newContent(size_t room) noexcept {
    Content* content = prepared(pool::acquireToGrow(wire::headerSize + room));
    if (content == nullptr) return nullptr;
    content->size = wire::headerSize;
    wire::store(content->image, wire::magic);
    content->stampHeader();
    return content;
}

Content* copyContent(const Content& from, size_t grow) noexcept {
    const size_t table = from.count * sizeof(Field);
    Content* copy = newBlock(from.size + table + grow);
    if (copy == nullptr) return nullptr;
    if ((from.sendLength | from.replyLength) != 0 && !copy->copySubjects(from)) {
        copy->release();
        return nullptr;
    }
    copy->size = from.size;
    copy->count = from.count;
    copy->depth = from.depth;
    std::memcpy(copy->image, from.image, from.size);
    std::memcpy(static_cast<void*>(copy->top - from.count), from.top - from.count, table + wire::tailsSize);
    return copy;
}

Content* newView(Content* base, const uint8_t* image) noexcept {
    const uint32_t count = wire::load<uint32_t>(image + wire::countAt);
    Content* view = newBlock(count * sizeof(Field));
    if (view == nullptr) return nullptr;
    base->retain();
    view->base = base;
    view->image = const_cast<uint8_t*>(image);
    view->size = wire::load<uint32_t>(image + wire::sizeAt);
    view->count = count;
    wire::Fault none;
    wire::Decoder<false>(image, view->size, 0, 0, &none).whole(count, view->top, &view->depth);
    return view;
}

Content* newEnvelopeOver(Content* base, Attributes attributes) noexcept {
    // A content that only shares another's table is left out of the chain, so that forwarding does not lengthen it.
    if (base->isEnvelope()) base = base->base;
    Content* view = newBlock(sizeof(uint32_t) + attributes.size());
    if (view == nullptr) return nullptr;
    wire::store(view->image, static_cast<uint32_t>(attributes.size()));
    if (!attributes.empty()) std::memcpy(view->image + sizeof(uint32_t), attributes.data(), attributes.size());
    base->retain();
    view->base = base;
    view->image = base->image;
    view->size = base->size;
    view->top = base->top;
    view->count = base->count;
    view->depth = base->depth;
    return view;
}

Content* withoutAttributes(Content* content) noexcept {
    if (content->attributes().empty()) return content;
    Content* plain = content->base;
    if (plain->sendSubject() == content->sendSubject() && plain->replySubject() == content->replySubject()) {
        plain->retain();
    } else {
        plain = newEnvelopeOver(content);
        if (plain != nullptr && !plain->copySubjects(*content)) {
            plain->release();
            plain = nullptr;
        }
    }
    content->release();
    return plain;
}

quorl_status readImage(const uint8_t* bytes, uint32_t size, Content** content) noexcept {
    wire::Fault fault;
    if (size < wire::headerSize) return wire::checkHeader(bytes, size, 0, 0, &fault), report(fault);
    // The bytes may change while they are read: the header is read once, and of the rest only the copy is believed.
    const auto header = wire::load<wire::Header>(bytes);
    if (!wire::checkHeader(header, size, 0, 0, &fault)) return report(fault);
    Content* made = newBlock(header.size + header.count * sizeof(Field));
    if (made == nullptr) return fail(QUORL_NO_MEMORY, "no memory for a message of %u bytes", header.size);
    wire::store(made->image, header);
    std::memcpy(made->image + wire::headerSize, bytes + wire::headerSize, header.size - wire::headerSize);
    made->size = header.size;
    made->count = header.count;
    if (!wire::Decoder<true>(made->image, header.size, 0, 0, &fault).whole(header.count, made->top, &made->depth)) {
        made->release();
        return report(fault);
    }
    *content = made;
    return QUORL_OK;
}

void Content::clear() noexcept {
    dropIndex();
    size = wire::headerSize;
    count = 0;
    depth = 0;
    stampHeader();
    // Nothing can fail where there is nothing to store.
    if (sendLength != 0) setSendSubject({});
    if (replyLength != 0) setReplySubject({});
}

bool Content::setSendSubject(std::string_view subject) noexcept {
    return setSubject(subject, shortSend, longSend, sendLength);
}

bool Content::setReplySubject(std::string_view subject) noexcept {
    return setSubject(subject, shortReply, longReply, replyLength);
}

void Content::dropIndex() noexcept {
    FieldIndex* old = index.load(std::memory_order_relaxed);
    if (old == nullptr) return;
    index.store(nullptr, std::memory_order_relaxed);
    deallocate(old);
}

void Content::recycle() noexcept {
    // A view of a view of a view: in a loop, since the bases may be many.
    for (Content* content = this; content != nullptr;) {
        Content* below = content->base;
        content->dropIndex();
        if (content->longSend != nullptr) deallocate(content->longSend);
        if (content->longReply != nullptr) deallocate(content->longReply);
        pool::release(content);
        if (below == nullptr || (below->references.load(std::memory_order_acquire) != 1 &&
                                 below->references.fetch_sub(1, std::memory_order_acq_rel) != 1)) {
            break;
        }
        content = below;
    }
}

}  // namespace quorl::message

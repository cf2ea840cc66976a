#include "formats/MessageScanner.h"

#include "base/Text.h"
#include "formats/TextDecoding.h"
#include "formats/UUEncoding.h"

#include <algorithm>
#include <utility>

namespace velmo {

MessageScanner::MessageScanner(BytesView data, MessageAssembler& assembler, MIMEHeaders* headers,
                               EncodedMessages encodedMessages)
    : data_(data), assembler_(assembler), headers_(headers), encodedMessages_(encodedMessages), open_{Entity{}} {}

std::optional<Bytes> MessageScanner::next() {
    while (!open_.empty()) {
        if (!cut_) cut_ = nextCut();
        if (auto message = closeEntities(*cut_)) return message;
        continueAfter(*cut_);
        cut_.reset();
    }
    return std::nullopt;
}

MessageScanner::Cut MessageScanner::nextCut() {
    while (position_ < data_.size()) {
        if (open_.back().state != State::head) position_ = nextLineToRead(position_);
        const auto lineFeed = data_.find('\n', position_);
        const auto next = lineFeed == BytesView::npos ? data_.size() : lineFeed + 1;
        auto line = slice(position_, lineFeed);
        if (lineFeed != BytesView::npos && line.ends_with('\r')) line.remove_suffix(1);
        if (const auto cut = cutAt(line, next)) return *cut;
        const Entity& innermost = open_.back();
        // A part may have no head at all (RFC 2046 §5.1), and some programs leave blanks in the line between.
        const bool mayBeEmpty = innermost.need == Need::whenNotEmpty;
        const bool endsHead = innermost.state == State::head && lineFeed != BytesView::npos &&
                              (mayBeEmpty || position_ > innermost.start) && text::trimmed(line, " \t").empty();
        if (endsHead) endHead(position_, next);
        position_ = next;
    }
    return Cut{0, data_.size(), data_.size(), Cut::Kind::endOfData};
}

/// The first line from there on that could be a delimiter, or the end.
std::size_t MessageScanner::nextLineToRead(std::size_t position) const {
    if (boundaries_.empty()) return data_.size();
    while (!data_.substr(position).starts_with("--")) {
        const auto lineFeed = data_.find('\n', position);
        if (lineFeed == BytesView::npos) return data_.size();
        position = lineFeed + 1;
    }
    return position;
}

/// A line delimits when it begins with "--" and a boundary, whatever follows (RFC 2046 §5.1.1 asks for no more).
std::optional<MessageScanner::Cut> MessageScanner::cutAt(std::string_view line, std::size_t next) const {
    if (boundaries_.empty() || !line.starts_with("--")) return std::nullopt;
    const auto match = boundaries_.match(line.substr(2));
    if (!match) return std::nullopt;
    const bool closes = line.substr(2 + match->length).starts_with("--");
    const auto depth = match->owner + 1;
    const auto start = depth < open_.size() ? open_[depth].start : position_;
    return Cut{depth, contentEnd(start, position_), next, closes ? Cut::Kind::closingDelimiter : Cut::Kind::delimiter};
}

/// The line end before a delimiter belongs to the delimiter.
std::size_t MessageScanner::contentEnd(std::size_t start, std::size_t delimiter) const {
    std::size_t end = delimiter;
    if (end > start && data_[end - 1] == '\n') --end;
    if (end > start && data_[end - 1] == '\r') --end;
    return end;
}

/// Sorts the innermost entity by its head; its body is what follows.
void MessageScanner::endHead(std::size_t headEnd, std::size_t bodyStart) {
    Entity& entity = open_.back();
    const auto head = slice(entity.start, headEnd);
    const bool wantsHeaders = open_.size() == 1 && headers_ != nullptr;
    if (wantsHeaders) *headers_ = MIMEHeaders::parse(head);
    leaf_ = (wantsHeaders ? ContentFields::of(*headers_) : ContentFields::of(head)).info();
    entity.isBare = head.empty();
    entity.start = bodyStart;
    switch (leaf_.kind) {
    case PartKind::alternative:
        assembler_.openAlternative();
        entity.hasScope = true;
        [[fallthrough]];
    case PartKind::multipart:
        entity.state = State::multipart;
        entity.hasBoundary = boundaries_.push(leaf_.boundary, open_.size() - 1);
        break;
    case PartKind::embedded:
        if (leaf_.encoding == TransferEncoding::identity) {
            assembler_.openEmbedded();
            entity.hasScope = true;
            entity.state = State::embedded;
            open_.push_back(Entity{bodyStart, State::head, Need::always, false, false});
            break;
        }
        if (encodedMessages_ == EncodedMessages::attached) leaf_.kind = PartKind::attachment;
        [[fallthrough]];
    default: entity.state = State::leaf;
    }
}

/// Ends the innermost entities. Pauses, to be called again, when one of them is an encoded message, and gives it.
std::optional<Bytes> MessageScanner::closeEntities(const Cut& cut) {
    while (open_.size() > cut.depth) {
        Entity& entity = open_.back();
        // What lies between two delimiters of one multipart is a part even when it is empty.
        const bool isDelimited = cut.kind != Cut::Kind::endOfData && open_.size() == cut.depth + 1;
        const bool isPart = entity.need == Need::always || isDelimited || entity.start < cut.end;
        if (entity.state == State::head && isPart) {
            endHead(std::max(entity.start, cut.end), cut.end);
            continue;
        }
        // An empty line that belongs to the delimiter of an outer multipart is no part.
        const bool isNothing = entity.isBare && entity.need == Need::whenNotEmpty && !isDelimited;
        if (entity.state == State::leaf && !(isNothing && entity.start > cut.end)) {
            entity.state = State::embedded;
            if (auto message = closeLeaf(slice(entity.start, cut.end))) {
                entity.hasScope = true;
                return message;
            }
        }
        popEntity();
    }
    return std::nullopt;
}

std::optional<Bytes> MessageScanner::closeLeaf(BytesView body) {
    Bytes decoded;
    if (leaf_.encoding != TransferEncoding::identity) {
        decoded = decodeTransfer(body, leaf_.encoding);
        body = decoded;
    }
    switch (leaf_.kind) {
    case PartKind::plainText: addPlainText(body); break;
    case PartKind::html: assembler_.addHTML(decodeText(body, leaf_.charset)); break;
    case PartKind::embedded: assembler_.openEmbedded(); return decoded;
    default:
        leaf_.attachment.data = leaf_.encoding == TransferEncoding::identity ? Bytes(body) : std::move(decoded);
        assembler_.addAttachment(std::move(leaf_.attachment));
    }
    return std::nullopt;
}

/// Files that older programs put into the text become what they are.
void MessageScanner::addPlainText(BytesView body) {
    UUEncodedText text = takeUUEncodedFiles(body);
    if (text.files.empty()) {
        assembler_.addPlainText(decodeText(body, leaf_.charset));
        return;
    }
    assembler_.addPlainText(decodeText(text.rest, leaf_.charset));
    for (auto& file : text.files) {
        MIMEAttachment attachment;
        attachment.filename = decodeText(file.name, leaf_.charset);
        attachment.mimeType = "application/octet-stream";
        attachment.data = std::move(file.data);
        assembler_.addAttachment(std::move(attachment));
    }
}

void MessageScanner::popEntity() {
    if (open_.back().hasScope) assembler_.close();
    if (open_.back().hasBoundary) boundaries_.pop();
    open_.pop_back();
}

void MessageScanner::continueAfter(const Cut& cut) {
    position_ = cut.next;
    if (cut.kind == Cut::Kind::endOfData) return;
    if (cut.kind == Cut::Kind::delimiter) {
        open_.push_back(Entity{cut.next, State::head, Need::whenNotEmpty, false, false});
        return;
    }
    open_.back().state = State::epilogue;
    open_.back().hasBoundary = false;
    boundaries_.pop();
}

/// Empty where the end lies before the start.
BytesView MessageScanner::slice(std::size_t start, std::size_t end) const {
    return start < end ? data_.substr(start, end - start) : BytesView{};
}

}

#pragma once

#include "base/Bytes.h"
#include "formats/BoundarySet.h"
#include "formats/MessageAssembler.h"
#include "formats/PartInfo.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace velmo {

/// Walks once over the lines of a message and hands its parts to an assembler.
///
/// Nested parts are entries of a stack, and a line is compared with the boundaries of all of them at once, so depth
/// costs neither time nor call stack. An embedded message in a transfer encoding is not in these bytes; for such a
/// message the walk pauses and gives its decoded bytes.
class MessageScanner {
  public:
    /// Whether embedded messages in a transfer encoding are decoded and given, or become attachments.
    enum class EncodedMessages { given, attached };

    /// The bytes and the assembler must outlive the scanner. Without `headers` those of the message are dropped.
    MessageScanner(BytesView data, MessageAssembler& assembler, MIMEHeaders* headers, EncodedMessages encodedMessages);

    /// Walks on, to the end or to the next encoded message, which is then to be walked before this one goes on.
    std::optional<Bytes> next();

  private:
    enum class State { head, multipart, epilogue, embedded, leaf };
    enum class Need { always, whenNotEmpty };

    struct Entity {
        std::size_t start = 0; // of the head, then of the body
        State state = State::head;
        Need need = Need::always; // whether it is a part at all when nothing is in it
        bool hasScope = false;
        bool hasBoundary = false;
        bool isBare = false; ///< without a head
    };

    /// Where open parts end.
    struct Cut {
        std::size_t depth = 0; // number of entities that stay open
        std::size_t end = 0;   // of the content
        std::size_t next = 0;  // of the line behind the delimiter
        enum class Kind { delimiter, closingDelimiter, endOfData } kind = Kind::endOfData;
    };

    Cut nextCut();
    std::optional<Cut> cutAt(std::string_view line, std::size_t next) const;
    std::size_t contentEnd(std::size_t start, std::size_t delimiter) const;
    std::size_t nextLineToRead(std::size_t position) const;
    void endHead(std::size_t headEnd, std::size_t bodyStart);
    std::optional<Bytes> closeEntities(const Cut& cut);
    std::optional<Bytes> closeLeaf(BytesView body);
    void addPlainText(BytesView body);
    void popEntity();
    void continueAfter(const Cut& cut);
    BytesView slice(std::size_t start, std::size_t end) const;

    BytesView data_;
    MessageAssembler& assembler_;
    MIMEHeaders* headers_;
    EncodedMessages encodedMessages_;
    std::size_t position_ = 0; // beginning of a line
    std::vector<Entity> open_;
    BoundarySet boundaries_; // their owners are indices into the open entities
    PartInfo leaf_;          // the innermost entity, where it is a leaf
    std::optional<Cut> cut_; // not yet carried out
};

}

// Text of published properties as a tree that remembers its source: each node knows its line and column, and comments,
// blank lines and order survive, so that a text that was read and is written again changes only where values changed.
//
//   pantiq graph 1
//   object mirror1: TPQMirror          # a comment
//     MirrorType = mtVertical
//     Region.Left = 10
//     Parameters.'Blur amount' = 0.5
//     Data = {00 01 02
//             03 04}
//     InputChannels                    # a collection: what follows, up to something else, are its items
//     item
//       Threshold = 4
//     end
//     InputPin = gen1.OutputPin
//   end
//
// A `#` starts a comment at a line's start or after a blank, except inside quotes. Lines end in LF; CRLF is read too.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "pantiq/host/PQFault.h"

namespace pantiq {

struct PQTextNode {
  enum class Kind {
    Root,
    Trivia,      // a blank line or a comment
    Header,      // the first line of a file
    Value,       // path = value
    Collection,  // path, then items
    Item,        // item ... end
    Object,      // object name: class ... end
  };
  Kind kind = Kind::Root;
  std::string path;        // of Value and Collection, as written; of Object its name
  std::string class_name;  // of Object
  std::string value;       // of Value, as written; it may span lines
  // Source text: `head` from the line's start to the value (of other kinds the whole line), `tail` behind the value,
  // `foot` the line of `end`.
  std::string head, tail, foot;
  std::vector<PQTextNode> children;
  int line = 0, column = 0;              // of the path, name or word, from 1
  int value_line = 0, value_column = 0;  // of the value; of Object the class name's
};

struct PQTextOptions {
  std::string_view header;  // what the first line has to say; empty if there is no such line
  bool objects = false;     // `object` blocks at the outermost level, and nothing else there
};

// Reads a text into `root` and appends what is wrong with it to `faults`. Nodes without a fault are usable in any case.
PQ_EXPORT void PQParseText(std::string_view text, const PQTextOptions& options, PQTextNode& root,
                           std::vector<PQFault>& faults);

// The source text of a tree; the inverse of PQParseText but for line ends, which become LF.
PQ_EXPORT std::string PQTextOf(const PQTextNode& root);

// Two lines: the source line of a fault, and a caret under its place. Empty if the fault has no place in the text.
PQ_EXPORT std::string PQCaret(std::string_view source, const PQFault& fault);

}  // namespace pantiq

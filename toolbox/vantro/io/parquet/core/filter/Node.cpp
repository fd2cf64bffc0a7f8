#include "toolbox/vantro/io/parquet/core/filter/Node.hpp"

namespace vantro::io::parquet::core::filter {

namespace {

Op negatedOp(Op op) {
  switch (op) {
    case Op::kEq:
      return Op::kNe;
    case Op::kNe:
      return Op::kEq;
    case Op::kLt:
      return Op::kGe;
    case Op::kLe:
      return Op::kGt;
    case Op::kGt:
      return Op::kLe;
    case Op::kGe:
      return Op::kLt;
  }
  return op;
}

const char* opText(Op op) {
  switch (op) {
    case Op::kEq:
      return "==";
    case Op::kNe:
      return "!=";
    case Op::kLt:
      return "<";
    case Op::kLe:
      return "<=";
    case Op::kGt:
      return ">";
    case Op::kGe:
      return ">=";
  }
  return "?";
}

}  // namespace

std::unique_ptr<Node> withoutNot(const Node& node, bool negate) {
  if (node.kind == Node::Kind::kNot) return withoutNot(*node.children[0], !negate);
  auto copy = std::make_unique<Node>();
  copy->kind = node.kind;
  copy->variable = node.variable;
  copy->op = node.op;
  copy->negated = node.negated;
  copy->constants = node.constants;
  switch (node.kind) {
    case Node::Kind::kAnd:
    case Node::Kind::kOr:
      // De Morgan: also exact for unknown values under three-valued logic.
      if (negate) copy->kind = node.kind == Node::Kind::kAnd ? Node::Kind::kOr : Node::Kind::kAnd;
      for (const auto& child : node.children) copy->children.push_back(withoutNot(*child, negate));
      break;
    case Node::Kind::kCompare:
      if (negate) copy->op = negatedOp(node.op);
      break;
    default:
      if (negate) copy->negated = !node.negated;
      break;
  }
  return copy;
}

std::string describeLeaf(const Node& leaf) {
  std::string text = leaf.variable;
  switch (leaf.kind) {
    case Node::Kind::kCompare:
      return text + " " + opText(leaf.op) + " " + leaf.constants[0].source;
    case Node::Kind::kIn: {
      text += leaf.negated ? " not in (" : " in (";
      for (size_t i = 0; i < leaf.constants.size(); ++i) {
        text += (i ? ", " : "") + leaf.constants[i].source;
      }
      return text + ")";
    }
    case Node::Kind::kBetween:
      return text + (leaf.negated ? " not between " : " between ") + leaf.constants[0].source +
             " and " + leaf.constants[1].source;
    case Node::Kind::kIsNull:
      return text + (leaf.negated ? " is not null" : " is null");
    default:
      return text;
  }
}

}  // namespace vantro::io::parquet::core::filter

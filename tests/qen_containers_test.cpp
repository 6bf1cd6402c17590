// Dictionaries, lists, arrays, trees and the walk over them: their
// operations, the deleting walk, and their binary and text forms.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "qen/qen.h"
#include "stream_test_support.h"

// A hashable key that is not a string, as a client could bring one.
class TestNumberKey : public QEN_TObject, public virtual QEN_IHashable {
  QEN_OBJECT_FRAME(TestNumberKey)
 public:
  std::size_t QEN_Hash() const override { return 1; }
  bool QEN_IsEqualKey(const QEN_IHashable&) const override { return false; }
};
QEN_DEFINE_OBJECT(TestNumberKey, QEN_TObject, QEN_IHashable)

namespace {

using test_support::Bytes;
using test_support::Pack;
using ContainersTest = test_support::LibraryTest<__QEN_INITIALIZATION_FUNCTION_qentypes__>;

test_support::Object ExtractText(const std::string& text) {
  return test_support::Object(test_support::TextReader(text).in.Extract());
}

// A new T filled by the >> of the stream R over `content`: the binary one wants
// T's class in front; the text one takes the framed form as well as the bare
// content, and counts as one level of nesting.
template <class T, class R = test_support::DataReader, class Content>
T Unpack(const Content& content) {
  R reader(content);
  T object;
  reader.in >> object;
  return object;
}

std::vector<std::string> Keys(const QEN_IIteratable& container) {
  std::vector<std::string> keys;
  for (QEN_TConstIterator it(container); !it.IsDone(); it++)
    keys.push_back(it.Key().DynamicCast<QEN_TString>()->c_str());
  return keys;
}

std::vector<unsigned> Values(const QEN_IIteratable& container) {
  std::vector<unsigned> values;
  for (QEN_TConstIterator it(container); !it.IsDone(); it++) values.push_back(it.Value());
  return values;
}

QEN_TList ListOf(std::vector<unsigned> values) {
  QEN_TList list;
  for (unsigned v : values) list.AddAtTail(QEN_TAny(v));
  return list;
}

QEN_TDict SampleDict() {
  QEN_TDict dict;
  dict["count"] = 3u;
  dict["name"] = "sample";
  dict["ratio"] = 0.5;
  dict["items"] = ListOf({1, 2});
  QEN_TTree tree;
  tree.Value("a/b") = true;
  dict["tree"] = tree;
  return dict;
}

// ---------------------------------------------------------------------------
// Operations

TEST_F(ContainersTest, DictKeysAndCopies) {
  QEN_TDict dict;
  const QEN_TDict& constant = dict;
  EXPECT_EQ(&constant[L"missing"], &QEN_TAny::Illegal());
  EXPECT_EQ(dict.Entries(), 0u) << "the const read created nothing";
  dict[L"w\u00E9"] = 1u;
  dict.Add(QEN_TString("w\xC3\xA9"), QEN_TAny(2u));
  EXPECT_EQ(dict.Entries(), 1u) << "UTF-8 and wide keys are one key";
  EXPECT_THROW(dict[TestNumberKey()], QEN_EAnyConversion);

  QEN_TDict original = SampleDict();
  original.AddAll(original);
  QEN_TDict copy(original, 0);
  static_cast<QEN_TList*>(copy["items"].DynamicCast("QEN_TList"))->AddAtTail(QEN_TAny(3u));
  EXPECT_FALSE(copy == original) << "copies are deep";
  QEN_TDict moved(std::move(copy));
  copy["usable"] = 1u;  // a moved-from dictionary is empty and works
  EXPECT_EQ(copy.Entries(), 1u);
  EXPECT_EQ(Keys(original), (std::vector<std::string>{"count", "name", "ratio", "items", "tree"}));
  QEN_TIterator it(original);
  // The key is the cursor's copy: changing it renames nothing.
  *static_cast<QEN_TString*>(it.Key().DynamicCast("QEN_TString")) = QEN_TString("renamed");
  EXPECT_FALSE(original.HasKey("renamed"));
}

// Entries come from blocks that the dictionary reuses after a removal, and
// the index grows under them: against a plain model, through growth, removal,
// re-adding and copying, order, look-ups and held references stay right.
TEST_F(ContainersTest, DictKeepsOrderAndReferencesThroughGrowthAndReuse) {
  QEN_TDict dict;
  std::vector<std::string> model;
  QEN_TAny& first = dict["k0"];
  model.push_back("k0");
  for (unsigned i = 1; i < 600; ++i) {
    model.push_back("k" + std::to_string(i));
    dict[model.back().c_str()] = i;
  }
  first = 0u;  // still the entry's own value after the growth
  for (unsigned i = 0; i < 600; i += 3) {
    std::string key = "k" + std::to_string(i);
    ASSERT_TRUE(dict.Remove(key.c_str()));
    model.erase(std::find(model.begin(), model.end(), key));
  }
  for (unsigned i = 0; i < 600; i += 6) {  // back at the end, in reused room
    model.push_back("k" + std::to_string(i));
    dict[model.back().c_str()] = i;
  }
  const QEN_TDict copy(dict, 0);
  for (const QEN_TDict* d : std::vector<const QEN_TDict*>{&dict, &copy}) {
    EXPECT_EQ(Keys(*d), model);
    for (const std::string& key : model)
      EXPECT_EQ(static_cast<unsigned>((*d)[key.c_str()]), std::stoul(key.substr(1)));
  }
}

TEST_F(ContainersTest, ListKeysBelongToOneListAndMoveWithIt) {
  QEN_TList list;
  QEN_TListKey* b = list.Add(QEN_TAny("b"));
  QEN_TListKey* a = list.AddAtHead(QEN_TAny("a"));
  QEN_TListKey* c = list.AddAtTail(QEN_TAny("c"));
  EXPECT_TRUE(list.Remove(b));
  EXPECT_EQ(a->Next(), c);
  EXPECT_TRUE(list[0] == QEN_TAny("a")) << "a literal index is an index";
  EXPECT_THROW(list[-1], QEN_EIndexOutOfRange);

  QEN_TList moved(std::move(list));
  EXPECT_TRUE(moved[c] == QEN_TAny("c"));
  EXPECT_THROW(list[c], QEN_EIndexOutOfRange);
  EXPECT_FALSE(list.Remove(c)) << "a key of another list is refused";
  QEN_TList copy(moved);
  EXPECT_FALSE(copy.Remove(c));
  EXPECT_THROW(moved[copy.KeyAtHead()], QEN_EIndexOutOfRange);
  moved = moved;
  EXPECT_TRUE(moved.Owns(c));
  EXPECT_THROW(QEN_TArray(2)[2], QEN_EIndexOutOfRange);
}

TEST_F(ContainersTest, TreePaths) {
  QEN_TTree tree;
  tree.Value("/Resources/Modules/VYR/Name") = "vyr";
  EXPECT_TRUE(tree.HasPath("Resources//Modules/VYR/"));
  EXPECT_TRUE(tree.Get("Resources.Modules.VYR.Name", u'.') == QEN_TAny("vyr"));
  EXPECT_THROW(tree.Get("/Resources/Other"), QEN_ETreeException);
  // The empty path is the tree itself.
  EXPECT_THROW(tree.Value(""), QEN_ETreeException);
  EXPECT_FALSE(tree.RemovePath("/"));
  // No path through a leaf, and none deeper than the bound.
  tree.Value("leaf") = 5u;
  EXPECT_THROW(tree.Value("leaf/b"), QEN_ETreeException);
  EXPECT_TRUE(tree.Get("leaf") == QEN_TAny(5u)) << "the leaf is unchanged";
  std::string deep;
  for (unsigned i = 0; i <= QEN_TTree::sMaxPathDepth; ++i) deep += "/x";
  EXPECT_THROW(tree.Value(deep.c_str()), QEN_ETreeException);
  EXPECT_FALSE(tree.HasPath("/x"));
  EXPECT_TRUE(tree.RemovePath("Resources/Modules"));
  EXPECT_FALSE(tree.HasPath("Resources/Modules/VYR"));
}

// A container given its own content: the source lives inside the target and
// must survive until it has been read.
TEST_F(ContainersTest, AssigningFromInsideItselfIsSafe) {
  QEN_TList list;
  list.AddAtTail(QEN_TAny(ListOf({7, 8})));
  list = std::move(*static_cast<QEN_TList*>(list[0].DynamicCast("QEN_TList")));
  EXPECT_TRUE(list == ListOf({7, 8}));

  QEN_TDict dict;
  dict["inner"] = QEN_TAny(QEN_TDict());
  QEN_TDict* inner = static_cast<QEN_TDict*>(dict["inner"].DynamicCast("QEN_TDict"));
  (*inner)["inner"] = 5u;
  (*inner)["other"] = 6u;
  dict.AddAll(*inner);  // replaces the very entry that holds `inner`
  EXPECT_TRUE(dict["inner"] == QEN_TAny(5u));
  EXPECT_TRUE(dict["other"] == QEN_TAny(6u));

  QEN_TAny any(SampleDict());
  any = std::move((*static_cast<QEN_TDict*>(any.DynamicCast("QEN_TDict")))["name"]);
  EXPECT_TRUE(any == QEN_TAny("sample"));

  QEN_TTree tree;
  tree.Value("b/one") = 1u;
  tree = *static_cast<const QEN_TTree*>(tree.Get("b").DynamicCast("QEN_TTree"));
  EXPECT_TRUE(tree.Get("one") == QEN_TAny(1u));

  QEN_TArray array(1);
  QEN_TArray nested(2);
  nested[1] = 4u;
  array[0] = nested;
  array = std::move(*static_cast<QEN_TArray*>(array[0].DynamicCast("QEN_TArray")));
  EXPECT_TRUE(array == nested);
}

// ---------------------------------------------------------------------------
// Walks

// Every container, the same moves: both ends, past them, and back.
TEST_F(ContainersTest, CursorsMoveBothWaysAndStopAtTheEnds) {
  QEN_TDict dict;
  QEN_TTree tree;
  QEN_TArray array(3);
  QEN_TList list = ListOf({0, 1, 2});
  for (unsigned i = 0; i < 3; ++i) {
    dict[std::to_string(i).c_str()] = i;
    tree.Value(std::to_string(i).c_str()) = i;
    array[i] = i;
  }
  for (QEN_IIteratable* container : std::vector<QEN_IIteratable*>{&dict, &list, &array, &tree}) {
    SCOPED_TRACE(container->ClassName());
    QEN_TConstIterator it(*container);
    --it;
    EXPECT_TRUE(it.IsBeforeFirst());
    EXPECT_THROW(it.Value(), QEN_EIndexOutOfRange);
    --it;  // stays before the first
    ++it;
    EXPECT_EQ(static_cast<unsigned>(it.Value()), 0u);
    it.End();
    ++it;
    EXPECT_TRUE(it.IsDone());
    it--;
    EXPECT_EQ(static_cast<unsigned>(it.Value()), 2u);
    QEN_TConstIterator copy(it);
    copy--;
    EXPECT_EQ(static_cast<unsigned>(it.Value()), 2u) << "a copy moves on its own";
    QEN_TConstIterator moved(std::move(copy));
    EXPECT_TRUE(copy.IsDone()) << "a moved-from iterator walks nothing";
    EXPECT_EQ(static_cast<unsigned>(moved.Value()), 1u);
  }
}

// The walk of a metadata archive: delete some entries while walking, advance
// once after each step, and see every entry exactly once.
TEST_F(ContainersTest, DeletingWalkSeesEveryEntry) {
  const std::vector<std::vector<bool>> patterns = {
      {true, true, true, true}, {true, false, true, false}, {false, true, true, false}, {}};
  for (const std::vector<bool>& drop : patterns) {
    QEN_TDict dict;
    QEN_TList list;
    QEN_TArray array(static_cast<unsigned>(drop.size()));
    QEN_TTree tree;
    std::vector<unsigned> all;
    for (unsigned i = 0; i < drop.size(); ++i) {
      std::string key = "k" + std::to_string(i);
      dict[key.c_str()] = i;
      list.AddAtTail(QEN_TAny(i));
      array[i] = i;
      tree.Value(key.c_str()) = i;
      all.push_back(i);
    }
    for (QEN_IIteratable* container : std::vector<QEN_IIteratable*>{&dict, &list, &array, &tree}) {
      SCOPED_TRACE(container->ClassName());
      std::vector<unsigned> seen, kept;
      for (QEN_TIterator it(*container); !it.IsDone(); it++) {
        unsigned value = it.Value();
        seen.push_back(value);
        if (drop[value]) {
          it.DeleteItem();
          EXPECT_THROW(it.Value(), QEN_EIndexOutOfRange) << "the element is gone";
        } else {
          kept.push_back(value);
        }
      }
      EXPECT_EQ(seen, all);
      EXPECT_EQ(Values(*container), kept);
    }
  }
}

TEST_F(ContainersTest, AfterDeletingPreviousGoesToTheElementInFront) {
  QEN_TList list = ListOf({0, 1, 2, 3});
  QEN_TIterator it(list);
  it.Last();
  it--;
  it.DeleteItem();  // removes 2
  it--;
  EXPECT_EQ(static_cast<unsigned>(it.Value()), 1u);
  it++;
  EXPECT_EQ(static_cast<unsigned>(it.Value()), 3u);
  EXPECT_EQ(*static_cast<const unsigned*>(it.Key().DynamicCast("QEN_TUInt32")), 2u)
      << "the element behind takes the removed one's index";
}

// ---------------------------------------------------------------------------
// Binary forms

// A claim of four billion entries with nothing behind them.
template <class T>
void ExpectHugeCountRefused() {
  Bytes packed = Pack(T());
  for (std::size_t i = packed.size() - 4; i < packed.size(); ++i) packed[i] = 0xFF;
  EXPECT_THROW(Unpack<T>(packed), QEN_EStreamException) << T::QEN_ClassName();
}

TEST_F(ContainersTest, BinaryReadingTrustsNoCountAndNoLength) {
  QEN_TTree tree;
  tree.Value("x/y/z") = -1;
  tree.Value("x/dict") = SampleDict();
  EXPECT_TRUE(Unpack<QEN_TTree>(Pack(tree)) == tree);
  EXPECT_TRUE(Unpack<QEN_TDict>(Pack(QEN_TDict())) == QEN_TDict());

  ExpectHugeCountRefused<QEN_TDict>();
  ExpectHugeCountRefused<QEN_TList>();
  ExpectHugeCountRefused<QEN_TArray>();
  ExpectHugeCountRefused<QEN_TTree>();
  // Every cut of a real dictionary fails cleanly and leaves the target as it was.
  Bytes packed = Pack(SampleDict());
  for (std::size_t length = 0; length < packed.size(); ++length) {
    Bytes cut(packed.begin(), packed.begin() + length);
    QEN_TMemoryStream memory(cut.data(), static_cast<unsigned>(cut.size()),
                             static_cast<unsigned>(cut.size()));
    QEN_TDataStream stream(memory);
    QEN_TDict target;
    target["kept"] = 1u;
    EXPECT_THROW(stream >> target, QEN_EStreamException) << length;
    EXPECT_EQ(target.Entries(), 1u);
  }
}

TEST_F(ContainersTest, BinaryReadingRefusesDuplicateKeys) {
  QEN_TDict dict;
  dict["aa"] = 1u;
  dict["ab"] = 2u;
  Bytes packed = Pack(dict);
  // Rename the second key to the first: same length, same place.
  Bytes second = test_support::PackContent(QEN_TString("ab"));
  Bytes first = test_support::PackContent(QEN_TString("aa"));
  auto at = std::search(packed.begin(), packed.end(), second.begin(), second.end());
  ASSERT_NE(at, packed.end());
  std::copy(first.begin(), first.end(), at);
  EXPECT_THROW(Unpack<QEN_TDict>(packed), QEN_EStreamException);
}

// ---------------------------------------------------------------------------
// Text forms

TEST_F(ContainersTest, AConfigurationWrittenByHandReads) {
  const char* text =
      "QEN_TTree {\n"
      "  # where the modules live\n"
      "  \"Resources\" {\n"
      "    \"Modules\" {\n"
      "      \"VYR\" { \"DynamicLoading\" = QEN_TDict { \"plugin\" = \"libx.so\" }; }\n"
      "    };\n"
      "    \"Depth\" = 3\n"
      "  }\n"
      "  \"Flat\" = QEN_TTree { \"x\" = -1; };\n"
      "}\n";
  std::unique_ptr<QEN_IInterface> read = ExtractText(text);
  const QEN_TTree* tree = static_cast<const QEN_TTree*>(read->DynamicCast("QEN_TTree"));
  ASSERT_NE(tree, nullptr);
  const QEN_TDict* plugins = static_cast<const QEN_TDict*>(
      tree->Get("/Resources/Modules/VYR/DynamicLoading").DynamicCast("QEN_TDict"));
  ASSERT_NE(plugins, nullptr);
  EXPECT_TRUE((*plugins)["plugin"] == QEN_TAny("libx.so"));
  EXPECT_TRUE(tree->Get("Flat/x") == QEN_TAny(-1));

  // Read as bare content, the framed form is accepted too.
  EXPECT_TRUE((Unpack<QEN_TTree, test_support::TextReader>(text) == *tree));
  EXPECT_EQ((Unpack<QEN_TDict, test_support::TextReader>("\"a\" = 1; \"b\" = 2").Entries()), 2u);
}

TEST_F(ContainersTest, TextThatDoesNotFitNamesWhere) {
  // No '=', no ';', an unquoted key, a duplicate, no value, not closed, ...
  const char* bad[] = {"QEN_TDict { \"a\" 1; }",
                       "QEN_TDict { \"a\" = 1 \"b\" = 2 }",
                       "QEN_TDict { a = 1; }",
                       "QEN_TDict { \"a\" = 1; \"a\" = 2; }",
                       "QEN_TDict { \"a\" = 1;",
                       "QEN_TList { 1,, 2 }",
                       "QEN_TTree { \"a\" { \"b\" = 1; }",
                       "QEN_TTree { \"a\" = 1; \"a\" { } }",
                       "QEN_TArray { 1, QEN_TNoSuchClass { } }"};
  for (const char* text : bad) EXPECT_THROW(ExtractText(text), QEN_EStreamException) << text;
  std::string trees = "QEN_TTree { ", lists;
  for (int i = 0; i < 10000; ++i) trees += "\"a\" { ", lists += "QEN_TList { ";
  EXPECT_THROW(ExtractText(trees), QEN_ESyntaxError) << "nesting is bounded";
  EXPECT_THROW(ExtractText(lists), QEN_ESyntaxError) << "nesting is bounded";
}

}  // namespace

// Lists and maps: immutability, range checks, identity lookup, the guarded walk.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <vector>

#include "YFoundation.h"

namespace {

using List = YArray<YObject>;
using Objects = std::vector<std::shared_ptr<YObject>>;

Objects objects(std::size_t n) {
  Objects out;
  for (std::size_t i = 0; i < n; ++i) out.push_back(std::make_shared<YObject>());
  return out;
}

template <class E>
void expectEachThrows(std::initializer_list<std::function<void()>> calls) {
  int i = 0;
  for (const auto& call : calls) EXPECT_THROW(call(), E) << "call " << i++;
}

TEST(YArrayTest, ImmutableListsRangeChecksAndNullEntries) {
  auto items = objects(2);
  auto extra = std::make_shared<YObject>();
  for (auto list : {List::arrayWithObjects(items), List::array(), List::mutableArrayWithObjects(items)->copy()}) {
    const std::size_t count = list->count();
    EXPECT_FALSE(list->isMutable());
    expectEachThrows<YInvalidArgumentException>(
        {[&] { list->addObject(extra); }, [&] { list->insertObjectAtIndex(extra, 0); },
         [&] { list->removeObjectAtIndex(0); }, [&] { list->removeLastObject(); },
         [&] { list->replaceObjectAtIndexWithObject(0, extra); }, [&] { list->removeAllObjects(); }});
    EXPECT_EQ(list->count(), count);
  }

  auto list = List::mutableArrayWithObjects(items);
  expectEachThrows<YRangeException>(
      {[&] { (void)list->objectAtIndex(2); }, [&] { (void)(*list)[YNotFound]; },
       [&] { list->insertObjectAtIndex(extra, 3); }, [&] { list->removeObjectAtIndex(2); },
       [&] { list->replaceObjectAtIndexWithObject(2, extra); }, [&] { List::mutableArray()->removeLastObject(); }});
  expectEachThrows<YInvalidArgumentException>({[&] { list->addObject(nullptr); },
                                               [&] { list->replaceObjectAtIndexWithObject(0, nullptr); },
                                               [&] { List::arrayWithObjects({extra, nullptr}); }});
  EXPECT_EQ(Objects(list->vector().begin(), list->vector().end()), items);

  list->insertObjectAtIndex(extra, 2);  // at the end is in range
  list->removeObjectAtIndex(0);
  EXPECT_EQ(Objects(list->vector().begin(), list->vector().end()), (Objects{items[1], extra}));
}

TEST(YArrayTest, IdentityLookupAndSnapshots) {
  auto items = objects(3);
  auto list = List::mutableArrayWithObjects({items[0], items[1], items[0]});
  EXPECT_EQ(list->indexOfObject(items[0]), 0u);
  EXPECT_EQ(list->indexOfObject(items[1].get()), 1u);
  EXPECT_EQ(list->indexOfObject(items[2]), YNotFound);
  EXPECT_FALSE(list->containsObject(items[2]));
  EXPECT_FALSE(list->isEqualToArray(*List::arrayWithObjects({items[0], items[1], items[2]})));

  auto snapshot = list->copy();
  auto changeable = list->mutableCopy();
  list->addObject(items[2]);
  changeable->removeAllObjects();
  EXPECT_TRUE(snapshot->isEqualToArray(*List::arrayWithObjects({items[0], items[1], items[0]})));
  EXPECT_EQ(list->count(), 4u);
}

TEST(YArrayTest, GuardedWalk) {
  auto items = objects(3);
  std::vector<std::function<void(List&)>> mutations = {
      [&](List& l) { l.addObject(items[0]); }, [&](List& l) { l.removeObjectAtIndex(0); },
      [&](List& l) { l.replaceObjectAtIndexWithObject(0, items[2]); }, [&](List& l) { l.removeAllObjects(); }};
  for (std::size_t at : {0u, 2u}) {  // the first and the last step
    for (const auto& mutate : mutations) {
      auto walked = List::mutableArrayWithObjects(items);
      Objects seen;
      auto walk = [&] {
        for (const auto& object : *walked) {
          seen.push_back(object);
          if (seen.size() == at + 1) mutate(*walked);
        }
      };
      EXPECT_THROW(walk(), YMutationDuringEnumerationException) << "mutated at step " << at;
      EXPECT_EQ(seen.size(), at + 1);
    }
  }
}

// A list that holds itself, directly or through others, is described once
// and stands as "(...)" within; a list met twice but not within itself is
// described in full both times.
TEST(YArrayTest, DescriptionOfListsHoldingThemselves) {
  auto outer = List::mutableArray();
  auto inner = List::mutableArray();
  auto shared = List::array();
  outer->addObject(inner);
  outer->addObject(shared);
  inner->addObject(outer);
  inner->addObject(inner);
  inner->addObject(shared);
  EXPECT_EQ(outer->description().UTF8String(),
            "(\n    (\n    (...),\n    (...),\n    ()\n),\n    ()\n)");
  EXPECT_EQ(inner->description().UTF8String(), "(\n    (\n    (...),\n    ()\n),\n    (...),\n    ()\n)");
  inner->removeAllObjects();  // the cycle would keep both alive
}

TEST(YDictionaryTest, MapsTextToObjects) {
  auto items = objects(2);
  auto map = YDictionary<YObject>::dictionary();
  YString key = YString::mutableStringWithString(YString(u"key"));
  map->setObjectForKey(items[0], key);
  key.appendString(YString(u"2"));  // the map keeps its own snapshot of the key
  EXPECT_EQ(map->objectForKey(YString(u"key")), items[0]);
  map->setObjectForKey(items[1], YString(u"key"));
  EXPECT_EQ(map->count(), 1u);
  EXPECT_EQ(map->objectForKey(YString(u"key")), items[1]);
  EXPECT_EQ(map->objectForKey(YString()), nullptr);
  expectEachThrows<YInvalidArgumentException>({[&] { map->setObjectForKey(items[0], YString()); },
                                               [&] { map->setObjectForKey(nullptr, YString(u"x")); }});
  map->removeObjectForKey(YString(u"key"));
  EXPECT_EQ(map->count(), 0u);
}

}  // namespace

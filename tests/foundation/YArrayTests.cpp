// Lists and maps: immutability, range checks, identity lookup, the guarded walk.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <vector>

#include "YFoundation.h"

namespace {

using List = YArray<YObject>;

std::vector<std::shared_ptr<YObject>> objects(std::size_t n) {
  std::vector<std::shared_ptr<YObject>> out;
  for (std::size_t i = 0; i < n; ++i) out.push_back(std::make_shared<YObject>());
  return out;
}

TEST(YArrayTest, ImmutableListsRefuseEveryMutation) {
  auto items = objects(2);
  auto extra = std::make_shared<YObject>();
  for (auto list : {List::arrayWithObjects(items), List::array(), List::mutableArrayWithObjects(items)->copy()}) {
    const std::size_t count = list->count();
    EXPECT_FALSE(list->isMutable());
    const std::function<void()> mutations[] = {
        [&] { list->addObject(extra); },
        [&] { list->insertObjectAtIndex(extra, 0); },
        [&] { list->removeObjectAtIndex(0); },
        [&] { list->removeLastObject(); },
        [&] { list->replaceObjectAtIndexWithObject(0, extra); },
        [&] { list->removeAllObjects(); },
    };
    for (const auto& mutate : mutations) EXPECT_THROW(mutate(), YInvalidArgumentException);
    EXPECT_EQ(list->count(), count);
  }
}

TEST(YArrayTest, IndexChecksAndNullEntries) {
  auto items = objects(2);
  auto extra = std::make_shared<YObject>();
  auto list = List::mutableArrayWithObjects(items);
  const std::function<void()> outOfRange[] = {
      [&] { (void)list->objectAtIndex(2); },
      [&] { (void)(*list)[YNotFound]; },
      [&] { list->insertObjectAtIndex(extra, 3); },
      [&] { list->removeObjectAtIndex(2); },
      [&] { list->replaceObjectAtIndexWithObject(2, extra); },
      [&] { List::mutableArray()->removeLastObject(); },
      [&] { (void)List::array()->objectAtIndex(0); },
  };
  for (const auto& call : outOfRange) EXPECT_THROW(call(), YRangeException);
  EXPECT_THROW(list->addObject(nullptr), YInvalidArgumentException);
  EXPECT_THROW(list->replaceObjectAtIndexWithObject(0, nullptr), YInvalidArgumentException);
  EXPECT_THROW(List::arrayWithObjects({extra, nullptr}), YInvalidArgumentException);
  ASSERT_EQ(list->count(), 2u);
  EXPECT_EQ(list->objectAtIndex(0), items[0]);
  EXPECT_EQ(list->objectAtIndex(1), items[1]);

  list->insertObjectAtIndex(extra, 2);  // at the end is in range
  list->removeObjectAtIndex(0);
  list->replaceObjectAtIndexWithObject(0, items[0]);
  EXPECT_EQ(list->vector(), (std::vector<std::shared_ptr<YObject>>{items[0], extra}));
  EXPECT_EQ(List::mutableArray()->firstObject(), nullptr);
}

TEST(YArrayTest, IdentityLookupAndEquality) {
  auto items = objects(3);
  auto list = List::arrayWithObjects({items[0], items[1], items[0]});
  EXPECT_EQ(list->indexOfObject(items[0]), 0u);
  EXPECT_EQ(list->indexOfObject(items[1].get()), 1u);
  EXPECT_EQ(list->indexOfObject(items[2]), YNotFound);
  EXPECT_GT(YNotFound, std::size_t(1) << 40);  // beyond every count
  EXPECT_TRUE(list->containsObject(items[1]));
  EXPECT_FALSE(list->containsObject(items[2]));

  EXPECT_TRUE(list->isEqualToArray(*List::arrayWithObjects({items[0], items[1], items[0]})));
  EXPECT_FALSE(list->isEqualToArray(*List::arrayWithObjects({items[0], items[1], items[2]})));
}

TEST(YArrayTest, ListsAreSharedAndCopiesAreSnapshots) {
  auto items = objects(2);
  auto list = List::mutableArray();
  auto sameList = list;
  auto snapshot = list->copy();
  sameList->addObject(items[0]);
  EXPECT_EQ(list->count(), 1u);
  EXPECT_EQ(snapshot->count(), 0u);
  auto changeable = list->mutableCopy();
  changeable->addObject(items[1]);
  EXPECT_EQ(list->count(), 1u);
  EXPECT_TRUE(changeable->isMutable());
}

TEST(YArrayTest, GuardedWalk) {
  auto items = objects(3);
  auto list = List::mutableArrayWithObjects(items);
  std::vector<std::shared_ptr<YObject>> seen;
  for (const auto& object : *list) seen.push_back(object);
  EXPECT_EQ(seen, items);

  const std::function<void(List&)> mutations[] = {
      [&](List& l) { l.addObject(items[0]); },
      [&](List& l) { l.removeObjectAtIndex(0); },
      [&](List& l) { l.replaceObjectAtIndexWithObject(0, items[2]); },
      [&](List& l) { l.removeAllObjects(); },
  };
  for (std::size_t at : {0u, 2u}) {  // the first and the last step
    for (const auto& mutate : mutations) {
      auto walked = List::mutableArrayWithObjects(items);
      auto walk = [&] {
        std::size_t step = 0;
        for (const auto& object : *walked) {
          (void)object;
          if (step++ == at) mutate(*walked);
        }
      };
      EXPECT_THROW(walk(), YMutationDuringEnumerationException) << "mutated at step " << at;
    }
  }
}

TEST(YDictionaryTest, MapsTextToObjects) {
  auto items = objects(2);
  auto map = YDictionary<YObject>::dictionary();
  YString key = YString::mutableStringWithString(YString(u"key"));
  map->setObjectForKey(items[0], key);
  key.appendString(YString(u"2"));  // the map keeps its own snapshot of the key
  EXPECT_EQ(map->objectForKey(YString(u"key")), items[0]);
  EXPECT_EQ(map->objectForKey(YString(u"key2")), nullptr);
  map->setObjectForKey(items[1], YString(u"key"));
  EXPECT_EQ(map->count(), 1u);
  EXPECT_EQ(map->objectForKey(YString(u"key")), items[1]);
  EXPECT_EQ(map->objectForKey(YString()), nullptr);
  EXPECT_THROW(map->setObjectForKey(items[0], YString()), YInvalidArgumentException);
  EXPECT_THROW(map->setObjectForKey(nullptr, YString(u"x")), YInvalidArgumentException);
  map->removeObjectForKey(YString(u"key"));
  EXPECT_EQ(map->count(), 0u);
}

}  // namespace

#include "pantiq/host/PQComponent.h"

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <thread>

#include "TestObjects.h"
#include "pantiq/host/PQRef.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQReport.h"

namespace pantiq {
namespace {

// Writes down how it dies.
class Mortal final : public TComponent {
 public:
  Mortal(TComponent* owner, std::string& log, const char* name, bool fail = false) : TComponent(owner), log_(log) {
    SetName(name).IgnoreError();
    if (fail) {
      new Mortal(this, log, "part");
      throw std::runtime_error("no");
    }
  }
  ~Mortal() override {
    BeforeDestructionOnce();
    log_ += "~" + GetName() + " ";
  }
  std::unique_ptr<Mortal> friend_;
  TComponent* victim = nullptr;

 protected:
  void BeforeDestruction() override {
    log_ += "-" + GetName() + " ";
    delete victim;
  }

 private:
  std::string& log_;
};

TEST(TComponent, DiesWithItsOwnerInReverseOrderAndOnce) {
  std::string log;
  {
    Mortal owner(nullptr, log, "owner");
    new Mortal(&owner, log, "a");
    Mortal* b = new Mortal(&owner, log, "b");
    new Mortal(b, log, "c");
    Mortal on_stack(&owner, log, "stack");
    EXPECT_EQ(owner.GetComponents().size(), 3u);
    EXPECT_EQ(owner.FindComponent("b"), b);
    EXPECT_EQ(owner.FindComponent("c"), nullptr);
  }
  EXPECT_EQ(log, "-stack ~stack -owner ~owner -b ~b -c ~c -a ~a ");
  log.clear();
  PQMake<Mortal>(log, "alone").reset();
  EXPECT_EQ(log, "-alone ~alone ");
}

TEST(TComponent, MayTakeASiblingWithIt) {
  std::string log;
  {
    Mortal owner(nullptr, log, "owner");
    Mortal* first = new Mortal(&owner, log, "first");
    (new Mortal(&owner, log, "last"))->victim = first;
  }
  EXPECT_EQ(log, "-owner ~owner -last -first ~first ~last ");
}

TEST(TComponent, AConstructorThatThrowsLeavesNothingBehind) {
  std::string log;
  Mortal owner(nullptr, log, "owner");
  EXPECT_THROW(new Mortal(&owner, log, "bad", true), std::runtime_error);
  EXPECT_TRUE(owner.GetComponents().empty());
  EXPECT_EQ(log, "-part ~part ");
}

TEST(TComponent, Names) {
  TestComponent owner, other;
  TestComponent a(&owner), b(&owner);
  EXPECT_TRUE(a.SetName("a1").Ok());
  EXPECT_TRUE(a.SetName("a1").Ok());
  EXPECT_EQ(b.SetName("a1").Code(), PQCode::Refused);
  EXPECT_TRUE(other.SetName("a1").Ok());
  for (const char* bad : {"1a", "a b", "a.b", "\xc3\xa4", "'"}) {
    EXPECT_EQ(b.SetName(bad).Code(), PQCode::BadValue) << bad;
    EXPECT_EQ(b.GetName(), "");
  }
  EXPECT_EQ(owner.FindComponent(""), nullptr);
}

TEST(TCollection, ItemsComeGoAndMove) {
  TestItems items;
  for (int i = 0; i < 5; ++i) static_cast<TestItem*>(items.Add())->level = i;
  const auto levels = [&] {
    std::string text;
    for (int i = 0; i < items.GetCount(); ++i) {
      EXPECT_EQ(items.GetItem(i)->GetIndex(), i);
      text += std::to_string(static_cast<TestItem*>(items.GetItem(i))->level);
    }
    return text;
  };
  items.Move(0, 3);
  EXPECT_EQ(levels(), "12304");
  items.Move(4, 1);
  EXPECT_EQ(levels(), "14230");
  const int updates = items.updates;
  for (const int out : {-1, 5}) items.Delete(out), items.Move(0, out), items.Move(out, 0);
  EXPECT_EQ(levels(), "14230");
  EXPECT_EQ(items.updates, updates);
  items.Delete(2);
  EXPECT_EQ(levels(), "1430");
  static_cast<TestItem*>(items.GetItem(0))->SetLevel(9);
  EXPECT_EQ(items.updates, updates + 2);
  items.Assign(items);
  EXPECT_EQ(levels(), "9430");
  items.Clear();
  EXPECT_EQ(items.GetItem(0), nullptr);
}

TEST(PQRegistry, FindsByNameAndPage) {
  const PQClassInfo* const classes[] = {&TestComponent::Class(), &TComponent::Class()};
  RegisterComponents("Test page", classes);
  RegisterComponents("Other page", classes);  // no second time
  EXPECT_EQ(PQFindClass("TestComponent"), &TestComponent::Class());
  EXPECT_EQ(PQFindClass("testcomponent"), nullptr);
  EXPECT_EQ(PQPageOf(TestComponent::Class()), "Test page");
  EXPECT_EQ(PQPageOf(TestRegion::Class()), "");
  EXPECT_EQ(PQRegisteredClasses("Test page").size(), 2u);
  EXPECT_TRUE(PQRegisteredClasses("Other page").empty());
  EXPECT_NE(PQCreateComponent("TestComponent"), nullptr);
  EXPECT_EQ(PQCreateComponent("TComponent"), nullptr);  // a base only
  EXPECT_EQ(PQCreateComponent("Nothing"), nullptr);
  EXPECT_TRUE(TestComponent::Class().Is(TComponent::Class()));
  EXPECT_FALSE(TComponent::Class().Is(TestComponent::Class()));
  EXPECT_EQ(TestComponent::Class().DefaultPin(PQPinRole::Sink)->name, "InputPin");
  EXPECT_EQ(TestComponent::Class().DefaultPin(PQPinRole::Source), nullptr);
  EXPECT_EQ(TestComponent::Class().DefaultProperty()->name, "Text");
}

TEST(PQReport, TwoThreadsAreHeardOneAtATime) {
  Report(nullptr, PQSeverity::Error, "nobody listens");
  std::set<std::string> heard;
  int inside = 0, most = 0;
  SetReportListener([&](const PQReportEntry& entry) {
    most = std::max(most, ++inside);
    heard.insert(entry.text);
    Report(nullptr, PQSeverity::Note, "from inside");  // must neither block nor be heard
    --inside;
    throw 1;  // must not reach the one who reports
  });
  EXPECT_TRUE(HasReportListener());
  const auto tell = [](const char* name) {
    for (int i = 0; i < 1000; ++i) Report(nullptr, PQSeverity::Warning, name + std::to_string(i));
  };
  std::thread first(tell, "a"), second(tell, "b");
  first.join(), second.join();
  SetReportListener({});
  EXPECT_FALSE(HasReportListener());
  Report(nullptr, PQSeverity::Error, "too late");
  EXPECT_EQ(heard.size(), 2000u);
  EXPECT_EQ(most, 1);
}

TEST(PQRef, CountsAcrossThreadsAndTellsClassesApart) {
  struct Counted : PQRefCounted {
    explicit Counted(std::atomic<int>& deaths) : deaths_(deaths) {}
    ~Counted() override { ++deaths_; }
    std::atomic<int>& deaths_;
  };
  std::atomic<int> deaths{0};
  {
    PQRef<Counted> ref = PQMakeRef<Counted>(deaths);
    EXPECT_TRUE(ref->IsSoleReference());
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
      threads.emplace_back([copy = ref] {
        for (int k = 0; k < 10000; ++k) PQRef<Counted> again = copy;
      });
    }
    for (std::thread& thread : threads) thread.join();
    threads.clear();
    EXPECT_TRUE(ref->IsSoleReference());
    PQRef<Counted> moved = std::move(ref);
    EXPECT_FALSE(ref);
    moved = PQRef<Counted>::Adopt(moved.Detach());
    EXPECT_EQ(deaths, 0);
  }
  EXPECT_EQ(deaths, 1);

  TestPin pin;
  TPersistent* object = &pin;
  EXPECT_EQ(PQCast<TestPin>(object), &pin);
  EXPECT_EQ(PQCast<TPersistent>(object), object);
  EXPECT_EQ(PQCast<TComponent>(object), nullptr);
  EXPECT_EQ(PQCast<TComponent>(static_cast<TPersistent*>(nullptr)), nullptr);
}

}  // namespace
}  // namespace pantiq

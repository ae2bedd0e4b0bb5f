// Every allocation of the containers and of the text operations fails in turn.
#include "tests/support/alloc_fault.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "autocleanup/unique.h"
#include "lib/report.h"
#include "lib/string.h"

namespace
{

// Filled so that the operations below must grow what they change.
struct Fixture {
    UniqueList list{NLIBCSzListAlloc(0)}, other{NLIBCSzListAlloc(0)};
    UniqueHash hash{NLIBCSzHashAlloc(0)};
    UniqueText text;
    int text_bytes = 0;

    explicit Fixture(int mode)
    {
        NLIBCSzListSort(list.get(), mode);
        NLIBCSzListSort(other.get(), mode);
        for (int i = 0; i < 24; i++) {
            const std::string item = "item " + std::to_string(i);
            NLIBCSzListPush(list.address(), item.c_str());
            NLIBCSzListPush(other.address(), (item + " of the other list").c_str());
            NLIBCSzHashSetValue(hash.address(), item.c_str(), "v");
        }
        NLIBCStrCat(text.address(), &text_bytes, "text");
    }

    // All the bytes of all the blocks, and where they stand.
    [[nodiscard]] std::string state()
    {
        const NLIBSZHASH *table = hash.get();
        const auto hash_bytes = sizeof *table + static_cast<size_t>(table->nSlot) * sizeof table->slots[0] +
                                static_cast<size_t>(table->cbPool);
        const PNLIBSZLIST handles[] = {list.get(), other.get()};
        std::string bytes(reinterpret_cast<const char *>(handles), sizeof handles);
        for (const NLIBSZLIST *block : handles)
            bytes.append(reinterpret_cast<const char *>(block), static_cast<size_t>(block->cbAlloc));
        bytes.append(reinterpret_cast<const char *>(table), hash_bytes);
        bytes.append(text.get(), static_cast<size_t>(text_bytes));
        return bytes + std::to_string(reinterpret_cast<uintptr_t>(table) ^ reinterpret_cast<uintptr_t>(text.get()));
    }
};

TEST(AllocFault, EveryOperationFailsWhole)
{
    static const std::string big(2000, 'x');
    struct {
        const char *name;
        bool (*succeeds)(Fixture &);
    } static constexpr kOperations[] = {
        {"list alloc", [](Fixture &) { return static_cast<bool>(UniqueList(NLIBCSzListAlloc(0))); }},
        {"list push", [](Fixture &f) { return NLIBCSzListPush(f.list.address(), big.c_str()) != -1; }},
        {"list unshift", [](Fixture &f) { return NLIBCSzListUnshift(f.list.address(), big.c_str()) != -1; }},
        {"list insert", [](Fixture &f) { return NLIBCSzListInsert(f.list.address(), 300, big.c_str()) != -1; }},
        {"list or", [](Fixture &f) { return NLIBCSzListOr(f.list.address(), f.other.get(), 0) != nullptr; }},
        {"list or, new",
         [](Fixture &f) {
             return static_cast<bool>(UniqueList(NLIBCSzListOr(f.list.address(), f.other.get(), kListOrNew)));
         }},
        {"list sort",
         [](Fixture &f) {
             NLIBCSzListSort(f.list.get(), kListSorted);
             return true;
         }},
        {"hash alloc", [](Fixture &) { return static_cast<bool>(UniqueHash(NLIBCSzHashAlloc(0))); }},
        {"hash set", [](Fixture &f) { return NLIBCSzHashSetValue(f.hash.address(), "new", "v") != -1; }},
        {"hash replace", [](Fixture &f) { return NLIBCSzHashSetValue(f.hash.address(), "item 1", big.c_str()) != -1; }},
        {"hash enumerate", [](Fixture &f) { return NLIBCSzHashEnumKey(f.hash.get(), f.list.address()) != -1; }},
        {"tok", [](Fixture &f) { return NLIBCStrTok(big.c_str(), ",", f.list.address()) != -1; }},
        {"sep", [](Fixture &f) { return NLIBCStrSep((big + ",b").c_str(), ",", f.list.address()) != -1; }},
        {"sep pair", [](Fixture &f) { return NLIBCStrSepPair(("a=" + big).c_str(), f.list.address()) != -1; }},
        {"cat", [](Fixture &f) { return NLIBCStrCat(f.text.address(), &f.text_bytes, big.c_str()) != -1; }},
        {"cat, new",
         [](Fixture &) {
             UniqueText text;
             int bytes = 0;
             return NLIBCStrCat(text.address(), &bytes, "a") != -1;
         }},
    };
    for (const auto &operation : kOperations) {
        for (const int mode : {kListUnsorted, kListSorted}) {
            int nth = 1;
            for (bool struck = true; struck; nth++) {
                SCOPED_TRACE(testing::Message() << operation.name << ", mode " << mode << ", allocation " << nth);
                Fixture fixture(mode);
                const std::string before = fixture.state();
                AllocFault fault(nth);
                const bool succeeds = operation.succeeds(fixture);
                const int held = fault.held();
                struck = fault.struck();
                ASSERT_EQ(succeeds, !struck);
                if (struck) {
                    EXPECT_EQ(held, 0);
                    EXPECT_EQ(NLIBCErrGet(), kErrOutOfMemory);
                    EXPECT_TRUE(fixture.state() == before);
                }
            }
            EXPECT_EQ(nth > 2, strcmp(operation.name, "list sort") != 0) << operation.name; // it needs no memory
        }
    }
}

} // namespace

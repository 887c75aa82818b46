#include "testsupport.h"

namespace {

// Serves the given names; answers false, as it is given no function.
struct NamedTag : TessivaneTemplateTagPtr
{
    explicit NamedTag(QStringList names = {}) { addTagNames(names); }
};

struct NameRow
{
    const char *name;
    QStringList addedList, added; // through addTagNames, then addTagName one by one
    const char *removed; // then through removeTagName, unless null
    QStringList expected;
    const char *probe;
    bool isProbeServed;
};
TT_PRINT_ROWS_AS_NAMES(NameRow)

using TessivaneTemplateTag = EngineTest<NameRow>;

TEST_P(TessivaneTemplateTag, KeepsOneEntryPerExactName)
{
    const NameRow &row = GetParam();
    NamedTag tag(row.addedList);
    for (const QString &name : row.added)
        tag.addTagName(name.toLatin1().constData());
    if (row.removed)
        tag.removeTagName(row.removed);
    EXPECT_EQ(tag.tagNameList(), row.expected);
    EXPECT_EQ(tag.containsTagName(row.probe), row.isProbeServed);
}

// clang-format off
const NameRow s_nameRows[] = {
    {"DuplicatesDropped", {"c", "b", "c"}, {"a", "b", "a"}, "b", {"c", "a"}, "b", false},
    {"CaseIsDistinct", {"Host"}, {"host"}, nullptr, {"Host", "host"}, "HOST", false},
    {"RemoveOtherCase", {}, {"a"}, "A", {"a"}, "a", true},
    // Kept as written, not through an 8-bit round trip.
    {"ListNonAsciiKept", {"\u0436"}, {}, nullptr, {"\u0436"}, "?", false},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Names, TessivaneTemplateTag, ::testing::ValuesIn(s_nameRows), testRowName);

TEST_F(TessivaneTemplateTag, RegistersNamedHandlersAndServesFirstThenDefault)
{
    NamedTag nameless, first({"a"}), second({"a", "b"}), fallback({"a"});
    EXPECT_EQ(engine.getTag("a"), nullptr);
    engine.setDefaultTagHandler(&fallback);
    EXPECT_EQ(engine.getTag("a"), &fallback);
    MessageRecorder recorder;
    EXPECT_FALSE(engine.addTag(&nameless));
    EXPECT_FALSE(engine.addTag(&fallback));
    EXPECT_EQ(recorder.warnings,
              QStringList({"tried to add a tag without tag names.",
                           "tried to add the default handler to the tag list"}));
    EXPECT_EQ(nameless.tessivaneTemplate(), nullptr);
    for (NamedTag *tag : {&first, &first, &second})
        ASSERT_TRUE(engine.addTag(tag));
    EXPECT_EQ(engine.getTag("a"), &first); // the default did not enter the list before it
    EXPECT_EQ(engine.getTag("b"), &second);
    EXPECT_EQ(engine.getTag("c"), &fallback);
    engine.removeTag(&first);
    EXPECT_EQ(engine.getTag("a"), &first); // through its second entry
    engine.removeTag(&first);
    engine.removeTag(&first);
    EXPECT_EQ(engine.getTag("a"), &second);
    engine.setRegistryBackend(nullptr);
    EXPECT_EQ(second.registryBackend(), &backend); // as it was at the registration
    EXPECT_EQ(fallback.registryBackend(), &backend);
    int value = 1;
    EXPECT_FALSE(second.processTag("a", nullptr, true, &value)); // no function to forward to
    EXPECT_EQ(value, 1);
}

} // namespace

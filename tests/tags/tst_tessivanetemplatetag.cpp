#include "testsupport.h"

namespace {

// Serves the given names; answers false until it is given a function.
struct NamedTag : public TessivaneTemplateTagPtr
{
    explicit NamedTag(QStringList names = {}) { addTagNames(names); }
};

struct NameRow
{
    const char *name;
    QStringList added, addedList; // through addTagName one by one, then addTagNames
    const char *removed; // then through removeTagName, unless null
    QStringList expected;
    const char *probe;
    bool isProbeServed;
};

class TessivaneTemplateTag : public ::testing::TestWithParam<NameRow>
{
protected:
    Tessivane backend;
    TessivaneTemplate engine;
};

const auto rowName = [](const auto &info) { return std::string(info.param.name); };

TEST_P(TessivaneTemplateTag, KeepsOneEntryPerExactName)
{
    const NameRow &row = GetParam();
    NamedTag tag;
    for (const QString &name : row.added)
        tag.addTagName(name.toLatin1().constData());
    QStringList list = row.addedList;
    tag.addTagNames(list);
    if (row.removed)
        tag.removeTagName(row.removed);
    EXPECT_EQ(tag.tagNameList(), row.expected);
    EXPECT_EQ(tag.containsTagName(row.probe), row.isProbeServed);
}

const NameRow nameRows[] = {
    {"New", {}, {}, nullptr, {}, "", false},
    {"DuplicateDropped", {"a", "b", "a"}, {}, nullptr, {"a", "b"}, "a", true},
    {"CaseIsDistinct", {"a", "A"}, {}, nullptr, {"a", "A"}, "A", true},
    {"CaseNotServed", {"host"}, {}, nullptr, {"host"}, "Host", false},
    {"BlankNotServed", {"host"}, {}, nullptr, {"host"}, " host", false},
    {"ListDuplicatesDropped", {"a"}, {"b", "a", "b"}, nullptr, {"a", "b"}, "b", true},
    {"ListNonAsciiKept", {}, {"\u0436"}, nullptr, {"\u0436"}, "?", false},
    {"RemoveHeld", {"a", "b"}, {}, "a", {"b"}, "a", false},
    {"RemoveAbsent", {"a"}, {}, "b", {"a"}, "a", true},
    {"RemoveOtherCase", {"a"}, {}, "A", {"a"}, "a", true},
};
INSTANTIATE_TEST_SUITE_P(Names, TessivaneTemplateTag, ::testing::ValuesIn(nameRows), rowName);

TEST_F(TessivaneTemplateTag, RefusesNamelessAndDefaultHandlerLeavingThemUntouched)
{
    engine.setRegistryBackend(&backend);
    NamedTag nameless, fallback({"x"}), later({"x"});
    engine.setDefaultTagHandler(&fallback);
    MessageRecorder recorder;
    EXPECT_FALSE(engine.addTag(&nameless));
    EXPECT_FALSE(engine.addTag(&fallback));
    EXPECT_EQ(recorder.warnings(),
              QStringList({"tried to add a tag without tag names.",
                           "tried to add the default handler to the tag list"}));
    EXPECT_EQ(nameless.tessivaneTemplate(), nullptr);
    EXPECT_EQ(nameless.registryBackend(), nullptr);
    ASSERT_TRUE(engine.addTag(&later));
    EXPECT_EQ(engine.getTag("x"), &later); // the default did not enter the list before it
}

TEST_F(TessivaneTemplateTag, ServesFirstRegisteredThenDefault)
{
    NamedTag first({"a"}), second({"a", "b"}), fallback;
    EXPECT_EQ(engine.getTag("a"), nullptr);
    engine.setDefaultTagHandler(&fallback);
    EXPECT_EQ(engine.getTag("a"), &fallback);
    for (NamedTag *tag : {&first, &first, &second})
        ASSERT_TRUE(engine.addTag(tag));
    EXPECT_EQ(engine.getTag("a"), &first);
    EXPECT_EQ(engine.getTag("b"), &second);
    EXPECT_EQ(engine.getTag("c"), &fallback);
    engine.removeTag(&first);
    EXPECT_EQ(engine.getTag("a"), &first); // through its second entry
    engine.removeTag(&first);
    engine.removeTag(&first);
    EXPECT_EQ(engine.getTag("a"), &second);
}

TEST_F(TessivaneTemplateTag, KeepsBackendAndEngineOfItsLastRegistration)
{
    NamedTag early({"a"}), fallback;
    ASSERT_TRUE(engine.addTag(&early));
    engine.setRegistryBackend(&backend);
    EXPECT_EQ(early.registryBackend(), nullptr);
    EXPECT_EQ(early.tessivaneTemplate(), &engine);
    engine.setDefaultTagHandler(&fallback);
    EXPECT_EQ(fallback.registryBackend(), &backend);
    TessivaneTemplate other;
    other.setDefaultTagHandler(&fallback);
    EXPECT_EQ(fallback.tessivaneTemplate(), &other);
    EXPECT_EQ(fallback.registryBackend(), nullptr);
}

bool writeOrAdd(const QString &tagName, QTextStream *out, bool wantValue, int *value)
{
    if (out)
        *out << tagName << wantValue;
    if (value)
        *value += 3;
    return tagName == "p";
}

TEST_F(TessivaneTemplateTag, PtrForwardsToFunctionOrAnswersFalse)
{
    const QByteArray text = "a%%TAG(p)%%b\n%%IF TAG(p) == 3%%y%%ENDIF%%z\n";
    NamedTag tag({"p"});
    ASSERT_TRUE(engine.addTag(&tag));
    EXPECT_EQ(render(engine, text).output, QByteArray("ab\nz\n"));
    tag.setTagPtr(&writeOrAdd);
    EXPECT_EQ(render(engine, text).output, QByteArray("ap0b\nyz\n"));
    int value = 1;
    EXPECT_FALSE(tag.processTag(QStringLiteral("q"), nullptr, true, &value));
    EXPECT_EQ(value, 4);
    tag.setTagPtr(nullptr);
    EXPECT_FALSE(tag.processTag(QStringLiteral("p"), nullptr, true, &value));
    EXPECT_EQ(value, 4);
}

} // namespace

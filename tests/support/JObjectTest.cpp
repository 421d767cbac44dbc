#include "TestSupport.h"

TEST(JObject, RaisesItsSixArgumentsAndKeepsTheMessageInWhat) {
    const JObject object;
    EXPECT_EQ(object.GetClassName(), "JObject");
    EXPECT_FALSE(object.GetDestroying());
    const std::string text = "Evaluating [%s%d]: 100% wrong.";
    const JException raised =
        CatchRaise([&] { object.RunExceptioon("Module", 42, "Owner", "Method", text, "File"); });
    EXPECT_EQ(raised.GetSrcFile(), "Module");
    EXPECT_EQ(raised.GetSrcLine(), 42);
    EXPECT_EQ(raised.GetClassName(), "Owner");
    EXPECT_EQ(raised.GetMethod(), "Method");
    EXPECT_EQ(raised.GetText(), text);
    EXPECT_EQ(raised.GetFile(), "File");
    EXPECT_NE(std::string(raised.what()).find(text), std::string::npos);
}

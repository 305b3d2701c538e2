// Tests of the command-line store, the option table and the choice of script
// and run mode.
#include <gtest/gtest.h>

#include <initializer_list>
#include <set>
#include <string>
#include <vector>

#include "host/args.h"
#include "host/command_line.h"

namespace vrk {
namespace {

ArgumentParser parsed(std::initializer_list<const char*> arguments,
                      std::set<std::string> registered = {}) {
    std::vector<const char*> argv(arguments);
    ArgumentParser parser(static_cast<int>(argv.size()), argv.data());
    parser.registeredParams = std::move(registered);
    parser.parse();
    return parser;
}

RunPlan plan_for(std::initializer_list<const char*> arguments) {
    const ArgumentParser parser = parsed(arguments);
    return plan_run(read_command_line(parser), parser.positional);
}

TEST(ArgumentParser, SortsArgumentsIntoValuesFlagsAndPositionals) {
    const ArgumentParser p = parsed({"vorka", "a.vrs", "--script=x y.vrs", "-wd=", "---dt", "b"});
    EXPECT_EQ(p.args.size(), 6u);
    EXPECT_EQ(p.positional, (std::vector<std::string>{"vorka", "a.vrs", "b"}));
    ASSERT_NE(p.value("script"), nullptr);
    EXPECT_EQ(*p.value("script"), "x y.vrs");  // blanks kept
    ASSERT_NE(p.value("wd"), nullptr);
    EXPECT_EQ(*p.value("wd"), "");  // present, though empty
    // "---dt" is followed by "b", which is not an option and not registered:
    // the name becomes a flag and "b" is read on its own.
    EXPECT_TRUE(p.has_flag("dt"));
    EXPECT_EQ(p.flags.size(), 1u);
}

TEST(ArgumentParser, ValueSplitsAtTheFirstEqualsAndFirstValueWins) {
    const ArgumentParser p = parsed({"vorka", "--s=a=b", "--s=second", "-x==", "--=v"});
    EXPECT_EQ(*p.value("s"), "a=b");
    EXPECT_EQ(*p.value("x"), "=");
    EXPECT_EQ(*p.value(""), "v");
}

TEST(ArgumentParser, NumbersArePositionalAndDashesOnlyStayWhole) {
    EXPECT_TRUE(ArgumentParser::is_number("-5"));
    EXPECT_TRUE(ArgumentParser::is_number("-.5e3"));
    EXPECT_TRUE(ArgumentParser::is_number("-5abc"));  // a number can be read from its start
    EXPECT_FALSE(ArgumentParser::is_number("-"));
    EXPECT_FALSE(ArgumentParser::is_number("-x5"));
    EXPECT_FALSE(ArgumentParser::is_number(""));
    EXPECT_FALSE(ArgumentParser::is_option(""));

    const ArgumentParser p = parsed({"vorka", "-5", "--", "-", "-1.5"});
    EXPECT_EQ(p.positional, (std::vector<std::string>{"vorka", "-5", "-1.5"}));
    EXPECT_EQ(p.flags, (std::set<std::string>{"--", "-"}));
}

TEST(ArgumentParser, SeparateValueIsPositionalUnlessTheNameIsRegistered) {
    const ArgumentParser plain = parsed({"vorka", "--script", "a.vrs", "--wd", "--cc"});
    EXPECT_TRUE(plain.has_flag("script"));
    EXPECT_TRUE(plain.has_flag("wd"));  // next argument is an option
    EXPECT_TRUE(plain.has_flag("cc"));  // last argument
    EXPECT_EQ(plain.positional, (std::vector<std::string>{"vorka", "a.vrs"}));
    EXPECT_TRUE(plain.params.empty());

    const ArgumentParser reg = parsed(
        {"vorka", "--script", "a.vrs", "--script", "b.vrs", "-n", "-5"}, {"script", "n"});
    EXPECT_EQ(*reg.value("script"), "a.vrs");
    EXPECT_EQ(*reg.value("n"), "-5");  // a number is not an option, so it can be a value
    EXPECT_EQ(reg.positional, (std::vector<std::string>{"vorka"}));
    EXPECT_TRUE(reg.flags.empty());
}

TEST(CommandLine, ShortNameIsLookedUpFirstAndAnyDashCountWorks) {
    const ArgumentParser p = parsed({"vorka", "--script=long.vrs", "-s=short.vrs"});
    EXPECT_EQ(option_value(p, Option::script), "short.vrs");
    const ArgumentParser q = parsed({"vorka", "---compiled_run=p.vre", "--crun=", "-dt"});
    // The short name was given (empty), so it wins over the long one.
    EXPECT_EQ(option_value(q, Option::compiled_run), "");
    EXPECT_TRUE(option_flag(q, Option::deptest));
    EXPECT_FALSE(option_flag(q, Option::script));

    for (const OptionSpec& spec : kOptions) {
        EXPECT_EQ(&option_spec(spec.option), &spec);
        EXPECT_EQ(spec.kind == OptionKind::flag, spec.option >= Option::deptest);
    }
    const CommandLineValues v = read_command_line(
        parsed({"vorka", "-rs=r", "-sa=a b", "-cc=c", "-crun=p", "-wd=w", "-s=s", "--deptest"}));
    EXPECT_EQ(v.runscript, "r");
    EXPECT_EQ(v.scriptarg, "a b");
    EXPECT_EQ(v.compile, "c");
    EXPECT_EQ(v.compiledRun, "p");
    EXPECT_EQ(v.workingDir, "w");
    EXPECT_EQ(v.script, "s");
    EXPECT_TRUE(v.deptest);
}

TEST(ScriptSelection, ScriptValueBeatsPositionalAndPositionalIsCutAtItsFirstBlank) {
    const std::vector<std::string> positional{"vorka", "my file.vrs"};
    EXPECT_EQ(select_script("my file.vrs", {"vorka"}, "").scriptPath, "my file.vrs");
    EXPECT_EQ(select_script("x.vrs", positional, "").scriptPath, "x.vrs");

    const ScriptSelection cut = select_script("", positional, "");
    EXPECT_EQ(cut.scriptPath, "my");
    EXPECT_TRUE(cut.unknownType);

    EXPECT_EQ(select_script("", {"vorka", "  lead.vrs tail"}, "").scriptPath, "lead.vrs");
    EXPECT_EQ(select_script("", {"vorka"}, "").scriptPath, "");
    EXPECT_EQ(select_script("", {"vorka", ""}, "").scriptPath, "");
}

TEST(ScriptSelection, TrimsBlanksThenTrailingThenLeadingQuotes) {
    EXPECT_EQ(select_script("\"\"a.vrs\"\"  ", {}, "").scriptPath, "a.vrs");
    // Blanks are trimmed before quotes, so a blank inside the quotes stays.
    EXPECT_EQ(select_script("\" a.vrs \"", {}, "").scriptPath, " a.vrs ");
    // Only trailing blanks go; a blank after a closing quote goes first.
    EXPECT_EQ(select_script(" a.vrs\" ", {}, "").scriptPath, " a.vrs");
    EXPECT_EQ(select_script("\"\"", {}, "").scriptPath, "");
    EXPECT_FALSE(select_script("\"\"", {}, "").unknownType);
}

TEST(ScriptSelection, ExtensionRules) {
    // ".vrs" anywhere keeps the path, even in front of ".vre".
    const ScriptSelection both = select_script("a.vrs.vre", {}, "p.vre");
    EXPECT_EQ(both.scriptPath, "a.vrs.vre");
    EXPECT_EQ(both.compiledRun, "p.vre");
    EXPECT_FALSE(both.unknownType);

    // ".vre" moves the path to the compiled program, replacing a given one.
    const ScriptSelection program = select_script("", {"vorka", "\"dir/x.vre\""}, "other.vre");
    EXPECT_EQ(program.scriptPath, "");
    EXPECT_EQ(program.compiledRun, "dir/x.vre");
    EXPECT_FALSE(program.unknownType);

    const ScriptSelection number = select_script("", {"vorka", "-5"}, "");
    EXPECT_EQ(number.scriptPath, "-5");
    EXPECT_TRUE(number.unknownType);
    EXPECT_TRUE(select_script("a.VRS", {}, "").unknownType);  // the test is case-sensitive
    EXPECT_TRUE(select_script(".vr", {}, "").unknownType);
}

TEST(RunPlan, ModesFollowTheirPrecedence) {
    EXPECT_EQ(plan_for({"vorka", "-rs=a.vrs", "--deptest", "-s=b.vrs"}).mode,
              RunMode::one_shot_run);
    EXPECT_EQ(plan_for({"vorka", "-rs=a.vrs", "-cc=c.vrs", "-dt"}).mode, RunMode::one_shot_compile);
    EXPECT_EQ(plan_for({"vorka", "-cc=c.vrs", "-dt", "b.vrs"}).mode, RunMode::dependency_test);
    EXPECT_EQ(plan_for({"vorka", "-cc=c.vrs", "b.vrs", "-crun=p.vre"}).mode, RunMode::compile);
    EXPECT_EQ(plan_for({"vorka", "b.vrs"}).mode, RunMode::normal_run);
    EXPECT_EQ(plan_for({"vorka", "-crun=p.vre"}).mode, RunMode::normal_run);
    EXPECT_EQ(plan_for({"vorka"}).mode, RunMode::registration);
    // Values that are given but empty count as absent.
    EXPECT_EQ(plan_for({"vorka", "-rs=", "-s=", "-cc=", "-crun=", "\"\""}).mode,
              RunMode::registration);

    // The script selection runs only outside one-shot and dependency test, so
    // only there is an unknown type reported.
    EXPECT_FALSE(plan_for({"vorka", "-rs=a.vrs", "-5"}).selected);
    EXPECT_FALSE(plan_for({"vorka", "-dt", "-5"}).selected);
    const RunPlan compile = plan_for({"vorka", "-cc=c.vrs", "-5"});
    EXPECT_TRUE(compile.selected);
    EXPECT_TRUE(compile.selection.unknownType);
}

TEST(RunPlan, HelpAndVersionComeFirstAndThePromptReplacesNormalRunAndRegistration) {
    EXPECT_EQ(plan_for({"vorka", "-rs=a.vrs", "--version", "-h"}).mode, RunMode::help);
    EXPECT_EQ(plan_for({"vorka", "---help"}).mode, RunMode::help);
    EXPECT_EQ(plan_for({"vorka", "-cc=a.vrs", "-v"}).mode, RunMode::version);
    EXPECT_EQ(plan_for({"vorka", "-i"}).mode, RunMode::prompt);
    EXPECT_EQ(plan_for({"vorka", "--repl", "a.vrs"}).mode, RunMode::prompt);
    EXPECT_EQ(plan_for({"vorka", "--repl", "a.vrs"}).selection.scriptPath, "a.vrs");
    EXPECT_EQ(plan_for({"vorka", "-i", "-rs=a.vrs"}).mode, RunMode::one_shot_run);
    EXPECT_EQ(plan_for({"vorka", "-i", "-cc=a.vrs"}).mode, RunMode::compile);
    // Quiet and debug change how a mode runs, not which one.
    EXPECT_EQ(plan_for({"vorka", "-q", "-dbg"}).mode, RunMode::registration);
    const CommandLineValues v = read_command_line(
        parsed({"vorka", "-q", "--debug", "--repl=1", "a.vrs"}));
    EXPECT_TRUE(v.quiet && v.debug && v.repl);
    EXPECT_FALSE(v.help || v.version || v.deptest);
}

TEST(RunPlan, PositionalProgramEqualsCompiledRunOption) {
    const RunPlan positional = plan_for({"vorka", "x.vre"});
    const RunPlan option = plan_for({"vorka", "--compiled_run=x.vre"});
    EXPECT_EQ(positional.mode, option.mode);
    EXPECT_EQ(positional.selection.scriptPath, option.selection.scriptPath);
    EXPECT_EQ(positional.selection.compiledRun, option.selection.compiledRun);
    EXPECT_EQ(
        source_path_to_load(positional.selection.scriptPath, positional.selection.compiledRun), "");
}

TEST(LoadPath, ExtensionsAppendedToTheScriptPath) {
    EXPECT_EQ(source_path_to_load("a.vrs", ""), "a.vrs");
    EXPECT_EQ(source_path_to_load("my", ""), "my.vrs");
    EXPECT_EQ(source_path_to_load("", "x.vre"), "");
    // A program named without ".vre" makes the host look for the source ".vre".
    EXPECT_EQ(source_path_to_load("", "x"), ".vre");
    EXPECT_EQ(source_path_to_load("a.vrs", "x"), "a.vrs.vre");
    EXPECT_EQ(source_path_to_load("a.vrs", "x.vre"), "a.vrs");
}

TEST(LoadPath, CompileTargetsAndDirectories) {
    EXPECT_EQ(compiled_file_name("dir/a.vrs", false), "dir/a.vrs.vre");
    EXPECT_EQ(compiled_file_name("dir/a.vrs", true), "dir/a.vre");
    EXPECT_EQ(compiled_file_name("a.vrs.bak", true), "a.vre");
    EXPECT_EQ(compiled_file_name("a", true), "a.vre");

    EXPECT_EQ(directory_part("dir/sub/a.vrs"), "dir/sub");
    EXPECT_EQ(directory_part("dir\\sub/x\\a.vrs"), "dir\\sub/x");
    EXPECT_EQ(directory_part("/a.vrs"), "");
    EXPECT_EQ(directory_part("a.vrs"), "a.vrs");  // no separator: the whole name
}

}  // namespace
}  // namespace vrk

// The configuration file: lines, keys and values.
#include <gtest/gtest.h>

#include "daemon/configuration.h"
#include "support/fixtures.h"

using namespace csi_receiver;

TEST(configuration, lines) {
    const struct {
        const char* line;
        const char* key; // nullptr for a line that is not accepted
        const char* value;
    } rows[] = {
        {"server=10.0.0.1", "server", "10.0.0.1"},
        {" \t\n\r\f\vThe Server \v= Host A \t\n\r\f\v", "the server", "Host A"},
        {"key=abc#d#f", "key", "abc"},
        {"key=#abc", nullptr, ""},
        {"#key=value", nullptr, ""},
        {"  #key=value", "#key", "value"},
        {"a#b=c", "a#b", "c"},
        {"no separator", nullptr, ""},
        {"", nullptr, ""},
        {"key=  \t", nullptr, ""},
        {"=value", "", "value"},
        {"a=b=c", "a", "b=c"},
    };
    for (const auto& row : rows) {
        const configuration_line line = parse_line(row.line, '=');
        ASSERT_EQ(line.accepted, row.key != nullptr) << row.line;
        if (line.accepted) {
            EXPECT_EQ(line.key, row.key) << row.line;
            EXPECT_EQ(line.value, row.value) << row.line;
        }
    }
}

TEST(configuration, files) {
    temporary_directory directory;
    const std::string path = directory.write("conf", "A=1\r\n#A=2\nb = 3\nA=4\nlast=5");
    configuration map = read_configuration(path, '=');
    EXPECT_EQ(map, (configuration{{"a", "4"}, {"b", "3"}, {"last", "5"}}));
    EXPECT_FALSE(has_key(map, "c"));
    EXPECT_EQ(get(map, "c"), "");
    EXPECT_TRUE(has_key(map, "c"));
    EXPECT_EQ(read_configuration(directory.write("other", "a:b=c"), ':'),
              (configuration{{"a", "b=c"}}));
    EXPECT_TRUE(read_configuration(directory.path + "/none", '=').empty());
    EXPECT_TRUE(read_configuration(directory.path, '=').empty());
}

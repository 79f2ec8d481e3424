# How long functions and files may be.
use strict;
use warnings;

my $function_lines_max = 45;  # from brace to brace
my $file_lines_max = 500;

sub lengths {
    my ($tree) = @_;
    my @found;
    for my $file ($tree->files(qr/./)) {
        next unless $file =~ /\.(?:cpp|h|pl|pm|sh)$/ or $tree->text($file) =~ /^#!/;
        my $lines = $tree->text($file) =~ tr/\n//;
        push @found, [$file, 1, "has $lines lines, more than $file_lines_max; split it by concern", $file, $lines]
            if $lines > $file_lines_max;
        for my $function ($tree->functions($file)) {
            my ($name, $line, $length) = @$function;
            push @found, [$file, $line, "$name has $length lines, more than $function_lines_max; split it into steps",
                          "$file:$name", $length] if $length > $function_lines_max;
        }
    }
    return @found;
}

my $steps = "    Step();\n" x 44;
(
    {
        name => 'lengths',
        says => 'no function over 45 lines, no source file or script over 500',
        counted => 1,
        check => \&lengths,
        planted => {
            'log/long.cpp' => "namespace {\n\nclass Sum\n{\npublic:\n"
                . "    explicit Sum(int a)\n        : m_a{a}\n    {\n$steps    }\n};\n\n}  // namespace\n"
                . "void Fits()\n{\n    // }\n    Write(\"}\");\n" . "    Step();\n" x 41 . "}\n",
            'tests/long_test.cpp' => "TEST_F(Log, IsLong)\n{\n$steps}\n" . "\n" x 460,
            'tools/long.pl' => "#!/usr/bin/env perl\nsub go {\n$steps}\n",
        },
        found => [
            'log/long.cpp:6: Sum has 46 lines, more than 45; split it into steps',
            'tests/long_test.cpp:1: TEST_F.IsLong has 46 lines, more than 45; split it into steps',
            'tests/long_test.cpp:1: has 507 lines, more than 500; split it by concern',
            'tools/long.pl:2: go has 46 lines, more than 45; split it into steps',
        ],
    },
)

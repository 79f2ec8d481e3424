# The installer package registers what the program's own switch registers.
use strict;
use warnings;

my ($code, $tables) = ('service/registration.cpp', 'installer/tables.sql');

# The rows of the code, "KEY | NAME | DATA" => line, in the words of the package's table.
sub rows_of_code {
    my ($tree) = @_;
    my $text = $tree->code_with_strings($code);
    my %named = (kDefault => '', kExecutable => '[#HOLVService.exe]', kServiceName => 'HOLVService');
    # A concatenation of literals and names.
    my $value = sub {
        my ($expression) = @_;
        my $all = '';
        while ($expression =~ /LR"\((.*?)\)"|L"((?:\\.|[^"\\])*)"|(\w+)/g) {
            $all .= defined $1 ? $1 : defined $2 ? $2 =~ s/\\\\/\\/gr : $named{$3} // "?$3";
        }
        return $all;
    };
    $named{$1} = $value->("$2") while $text =~ /^#define (\w+) (.*)$/mg;
    $named{$1} = $value->("$2") while $text =~ /^constexpr const wchar_t\* (kAppIdKey|kClassKey) = (.*?);/msg;
    my %rows;
    while ($text =~ /^constexpr Row \w+\[\] = \{\n(.*?)^\};/msg) {
        my ($block, $begin) = ($1, $-[1]);
        while ($block =~ /\{([^{}]*(?:\{[-\w]+\}[^{}]*)*?), (\w+|L"\w+"), (\w+|L?R?"[^"]*"|\w+ L"[^"]*")\},?\n/g) {
            my ($key, $name, $data, $at) = ($1, $2, $3, $-[0]);
            my ($named, $told) = $data eq 'kNoValue' ? ('*', '') : ($value->($name), $value->($data));
            $rows{$value->($key) . " | $named | $told"} = Tree::line_of($text, $begin + $at);
        }
    }
    return \%rows;
}

# Those of the package below Software\Classes. LocalService is written by code, not by a row.
sub rows_of_package {
    my ($tree) = @_;
    my (%rows, $line);
    for (split /\n/, $tree->text($tables)) {
        ++$line;
        my ($columns, $values) = /^INSERT INTO `Registry` \(([^()]*)\) VALUES \((.*)\)$/ or next;
        my %row;
        @row{$columns =~ /`(\w+)`/g} = map { s/^'|'$//gr } $values =~ /'[^']*'|\d+/g;
        my ($key) = $row{Key} =~ /^Software\\Classes\\(.*)/ or next;
        next if ($row{Name} // '') eq 'LocalService';
        $rows{join ' | ', $key, $row{Name} // '', $row{Value} // ''} = $line;
    }
    return \%rows;
}

sub installer {
    my ($tree) = @_;
    my ($in_code, $in_package) = (rows_of_code($tree), rows_of_package($tree));
    return ((map { [$code, $in_code->{$_}, "registers $_, and $tables does not"] }
                grep { not defined $in_package->{$_} } sort keys %$in_code),
            (map { [$tables, $in_package->{$_}, "registers $_, and $code does not"] }
                grep { not defined $in_code->{$_} } sort keys %$in_package));
}

(
    {
        name => 'installer',
        says => "the installer package registers the keys and values of the program's switch",
        check => \&installer,
        planted => {
            $tables => "INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Value`, `Component_`) VALUES "
                . "('A', 2, 'Software\\Classes\\CLSID\\{1}', 'Old', 'Service')\n",
            $code => "#define ID L\"{1}\"\n\nconstexpr Row kRows[] = {\n    {L\"CLSID\\\\\" ID, kDefault, L\"New\"},\n};\n",
        },
        found => [
            "$tables:1: registers CLSID\\{1} |  | Old, and $code does not",
            "$code:4: registers CLSID\\{1} |  | New, and $tables does not",
        ],
    },
)

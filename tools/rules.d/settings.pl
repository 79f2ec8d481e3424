# The settings in every place that an administrator meets them: the table in tools/settings.txt says what
# the code of the service says, and the page, the policies and the file of defaults say what the table says.
use strict;
use warnings;
use Settings;

# Settings that the service loads and an administrator has no use for, and why.
my %kept_from_administrators = map { $_ => 'is loaded, and nothing in the service reads it' }
    qw(EnableSoftwareUpdate LyncInstalled LastUpdateVersion);

# The value of a number in the tables of settings, written in C++ as a literal or a product.
sub number {
    my $value = 1;
    $value *= /^0x/i ? hex : $_ for split /\s*\*\s*/, $_[0] =~ s/\s+//gr;
    return $value;
}

# The tables of settings/: name => {text, bool, default, least, most}.
sub tables {
    my ($tree) = @_;
    my $code = join "\n", map { $tree->code_with_strings($_) } $tree->files(qr{^settings/.*\.(?:cpp|h)$});
    my %constants = $code =~ /\b(k\w+)\s*=\s*L"(\w+)"\s*;/g;
    my %bounds;
    $bounds{$1} = [number($2), number($3)]
        while $code =~ /\{\s*&(\w+)\s*,\s*([\dx][\w *]*)\s*,\s*([\dx][\w *]*)\s*\}/g;
    my %settings;
    while ($code =~ /\{\s*(?:L"(\w+)"|(k\w+))\s*,\s*(?:&(\w+)|nullptr)\s*,\s*(\d[\w *]*)\s*\}/g) {
        my $name = $1 // $constants{$2} // $2;
        my ($global, $default) = ($3, number($4));
        my ($least, $most) = @{$bounds{$global // ''} // []};
        $settings{$name} = {text => !defined $global, bool => scalar(($global // '') =~ /^g_b/),
                            default => $default, least => $least, most => $most};
    }
    return \%settings;
}

# What the table says of a setting that the service loads with all others at its start.
sub check_loaded {
    my ($s, $loaded, $say) = @_;
    my ($name, $kind) = @$s{qw(name kind)};
    $say->("$name is loaded from User; its key is not $s->{key}") if $s->{key} ne 'User';
    $say->("$name is loaded at the start; it takes effect then") if $s->{effect} ne 'start';
    $say->("$name is built in as $loaded->{default}, not $s->{default}") if $s->{default} ne $loaded->{default};
    my $actual = $loaded->{text} ? 'text' : $loaded->{bool} ? 'switch'
               : defined $loaded->{least} ? "bounded $loaded->{least} to $loaded->{most}" : 'number';
    my $given = $kind eq 'bounded' ? "bounded $s->{least} to $s->{most}" : $kind;
    $say->("$name is $actual in the service, not $given") if $given ne $actual;
}

# What the table says of a setting that the service reads by itself: the key is named in the same file.
sub check_read_alone {
    my ($tree, $s, $say) = @_;
    for my $file ($tree->files(qr{$Tree::service.*\.cpp$})) {
        my $code = $tree->code_with_strings($file);
        next unless $code =~ /RegGetValueW\([^;]*L"$s->{name}"/;
        my $path = quotemeta 'Software\\Orbeq\\Holv\\';
        my ($key) = $code =~ /$path(\w+)/;
        return $say->("$file reads $s->{name} from $key, not $s->{key}") if ($key // '') ne $s->{key};
        return;
    }
    $say->("the service reads no $s->{name}; remove it");
}

# Values that the service reads outside its table of settings.
sub read_alone {
    my ($tree) = @_;
    return map { $tree->code_with_strings($_) =~ /RegGetValueW\(\s*key\.Get\(\)\s*,\s*nullptr\s*,\s*L"(\w+)"/g }
        $tree->files(qr{^(?:log|state)/.*\.cpp$});
}

# The first line in which a paper differs from what the table makes of it.
sub compare {
    my ($path, $actual, $expected, $report) = @_;
    return if $actual eq $expected;
    my @actual = split /\r?\n/, $actual;
    my @expected = split /\r?\n/, $expected;
    my $at = 0;
    ++$at while $at < @actual and $at < @expected and $actual[$at] eq $expected[$at];
    my ($is, $should) = map { defined ? '"' . s/^\s+//r . '"' : 'nothing' } $actual[$at], $expected[$at];
    $report->($path, $at + 1, "is $is, and $Settings::table makes $should; run tools/settings_papers");
}

sub settings {
    my ($tree) = @_;
    my @found;
    my $report = sub { push @found, [@_] };
    my $loaded = tables($tree);
    return ['settings/settings_store.cpp', 1, 'no table of settings is found; teach tools/rules.d/settings.pl its form']
        unless %$loaded;
    my @settings = Settings::parse($tree->text($Settings::table));
    my %named = map { $_->{name} => 1 } @settings;
    for my $s (@settings) {
        my $say = sub { $report->($Settings::table, $s->{line}, $_[0]) };
        $say->("$s->{name} is kept from administrators; remove it here or in tools/rules.d/settings.pl")
            if $kept_from_administrators{$s->{name}};
        $loaded->{$s->{name}} ? check_loaded($s, $loaded->{$s->{name}}, $say) : check_read_alone($tree, $s, $say);
    }
    for my $name (sort keys %$loaded, read_alone($tree)) {
        $report->($Settings::table, 1, "$name is missing; add it, or say in tools/rules.d/settings.pl why not")
            unless $named{$name} or $kept_from_administrators{$name};
    }
    my %papers = Settings::papers($tree->text($Settings::page), @settings);
    compare($_, $tree->text($_), $papers{$_}, $report) for sort keys %papers;
    # A page without the table's head stays as it is.
    $report->($Settings::page, 1, 'has no table of settings')
        unless grep({ $_->[0] eq $Settings::page } @found)
        or index($tree->text($Settings::page), join '', map { Settings::row($_) } @settings) >= 0;
    return @found;
}

my $run = 'run tools/settings_papers';

(
    {
        name => 'settings',
        says => "the table of settings agrees with the code, and the administrator's page, the policies and the defaults with it",
        check => \&settings,
        planted => {
            'settings/settings_store.cpp' => qq|constexpr const wchar_t* kPlan = L"Plan";\nStoredSetting k[] = {\n|
                . qq|    {L"Level", &g_dwLevel, 2 * 4}, {kPlan, nullptr, 0}, {L"Mute", &g_dwMute, 1}, {L"New", &g_bNew, 0},\n};\n|
                . qq|Bounds b[] = {{&g_dwLevel, 0, 60}};\n|,
            'log/size.cpp' => qq|auto key = LR"(Software\\Orbeq\\Holv\\User)";\n|
                . qq|int size = RegGetValueW(key.Get(), nullptr, L"Size", 0);\nint a = RegGetValueW(key.Get(), nullptr, L"Other", 0);\n|,
            'tools/settings.txt' => "Level | User | bounded 0 to 50 | 6 | start | Level\n    How much.\n"
                . "Plan | User | text | 0 | start | Plan\n    Which.\nMute | User | switch | 1 | start | Mute\n    Whether.\n"
                . "Size | OEM | switch | 0 | start | Size\n    How large.\nOld | OEM | switch | 0 | start | Old\n    Gone.\n",
        },
        found => [
            'tools/settings.txt:1: Level is bounded 0 to 60 in the service, not bounded 0 to 50',
            'tools/settings.txt:1: Level is built in as 8, not 6',
            'tools/settings.txt:1: New is missing; add it, or say in tools/rules.d/settings.pl why not',
            'tools/settings.txt:1: Other is missing; add it, or say in tools/rules.d/settings.pl why not',
            'tools/settings.txt:5: Mute is number in the service, not switch',
            'tools/settings.txt:7: log/size.cpp reads Size from User, not OEM',
            'tools/settings.txt:9: the service reads no Old; remove it',
            qq{package/administration.md:8: is nothing, and tools/settings.txt makes "| `Size` | OEM | 0 | 0, 1 | How large. |"; $run},
            "package/defaults.reg:10: is nothing, and tools/settings.txt makes \"\"; $run",
            qq{package/policies/Holv.admx:31: is "</policies>", and tools/settings.txt makes }
                . qq{"<policy name="Size" class="Machine" displayName="\$(string.Size)" explainText="\$(string.Size_Help)" }
                . qq{key="Software\\Orbeq\\Holv\\OEM" valueName="Size">"; $run},
            qq{package/policies/en-US/Holv.adml:16: is "</stringTable>", and tools/settings.txt makes "<string id="Size">Size</string>"; $run},
        ],
    },
)

# The settings in every place that an administrator meets them: the page, the policies and the file of
# defaults say what the tables of settings/ say.
use strict;
use warnings;

# Settings that the service loads and an administrator has no use for, and why.
my %kept_from_administrators = map { $_ => 'is loaded, and nothing in the service reads it' }
    qw(EnableSoftwareUpdate LyncInstalled LastUpdateVersion);

my $page = 'package/administration.md';
my $policies = 'package/policies/Holv.admx';
my $texts = 'package/policies/en-US/Holv.adml';
my $defaults = 'package/defaults.reg';

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

# What each setting's range is called on the page.
sub range_of {
    my ($setting) = @_;
    return $setting->{text} ? 'text' : $setting->{bool} ? '0, 1'
         : defined $setting->{least} ? "$setting->{least} to $setting->{most}" : 'any';
}

sub check_page {
    my ($tree, $settings, $report) = @_;
    my (%meanings, $section);
    my $line = 0;
    for (split /\n/, $tree->text($page)) {
        ++$line;
        $section = $1 if /^## (.*)/;
        next unless ($section // '') eq 'Settings' and /^\| `(\w+)` \| (.*?) \| (.*?) \| (.*?) \|$/;
        my ($name, $built_in, $range, $meaning) = ($1, $2, $3, $4);
        $meanings{$name} = $meaning;
        my $setting = $settings->{$name};
        if (not $setting) {
            $report->($page, $line, "the service loads no $name; remove the row");
            next;
        }
        my $default = $setting->{text} ? 'none' : $setting->{default};
        $report->($page, $line, "$name is built in as $default, not $built_in") if $built_in ne $default;
        my $actual = range_of($setting);
        $report->($page, $line, "the range of $name is $actual, not $range") if $range ne $actual;
    }
    for my $name (sort keys %$settings) {
        $report->($page, 1, "$name has no row; add one, or say in tools/rules.d/settings.pl why it has none")
            unless $meanings{$name} or $kept_from_administrators{$name};
    }
    return \%meanings;
}

# What a policy's explanation is, from the page's meaning and the tables.
sub explanation {
    my ($setting, $meaning) = @_;
    $meaning =~ tr{`}{}d;  # A policy's text has no markup.
    my $range = range_of($setting) =~ / to / ? ' From ' . range_of($setting) . '.' : '';
    my $built_in = $setting->{text} ? 'none' : !$setting->{bool} ? $setting->{default}
                 : $setting->{default} ? 'on' : 'off';
    return "$meaning$range Built-in: $built_in. Takes effect when the service next starts.";
}

sub check_policy {
    my ($name, $body, $setting, $say) = @_;
    my ($on, $off) = map { qr{<$_->[0]><decimal value="$_->[1]"/></$_->[0]>} }
        ['enabledValue', 1], ['disabledValue', 0];
    if ($setting->{bool}) {
        $say->("$name is a switch; its enabled value is 1 and its disabled value 0")
            unless $body =~ /valueName="$name".*$on\s*$off/s;
    } elsif ($setting->{text}) {
        $say->("$name is a text; it needs a text element") unless $body =~ /<text id="$name" valueName="$name"/;
    } else {
        my ($least, $most) = $body =~ /<decimal\ id="$name"\ valueName="$name"\ required="true"
                                        \ minValue="(\d+)"\ maxValue="(\d+)"/x
            or return $say->("$name is a number; it needs a decimal element with its bounds");
        $say->("the policy lets $name be $least to $most, the service $setting->{least} to $setting->{most}")
            if defined $setting->{least} and ($least != $setting->{least} or $most != $setting->{most});
    }
}

sub check_texts {
    my ($name, $body, $setting, $help, $strings, $presentation, $say) = @_;
    $say->("the policy $name has no name; add string $name") unless $strings->{$name};
    my $text = $strings->{"${name}_Help"} // 'nothing';
    $say->("the policy $name is explained by \"$text\"; the page and the tables have \"$help\"")
        if $text ne $help;
    my $refers = $body =~ /\$\(presentation\.$name\)/;
    $say->("the policy $name lacks its presentation; add it") if $refers and not defined $presentation;
    $say->("the policy $name refers to no presentation; remove it") if not $refers and defined $presentation;
    $say->("the presentation of $name offers $1, built in is $setting->{default}")
        if ($presentation // '') =~ /defaultValue="(\d+)"/ and $1 != $setting->{default};
}

sub check_policies {
    my ($tree, $settings, $meanings, $report) = @_;
    my ($admx, $adml) = ($tree->text($policies), $tree->text($texts));
    my %strings = $adml =~ m{<string id="(\w+)">(.*?)</string>}g;
    my %presentations = $adml =~ m{<presentation id="(\w+)">(.*?)</presentation>}gs;
    my %found;
    while ($admx =~ m{<policy name="(\w+)"(.*?)</policy>}gs) {
        my ($name, $body, $line) = ($1, $2, Tree::line_of($admx, $-[0]));
        $found{$name} = 1;
        my $setting = $settings->{$name};
        if (not $setting) {
            $report->($policies, $line, "the service loads no $name; remove the policy");
            next;
        }
        check_policy($name, $body, $setting, sub { $report->($policies, $line, $_[0]) });
        check_texts($name, $body, $setting, explanation($setting, $meanings->{$name} // ''), \%strings,
                    $presentations{$name}, sub { $report->($texts, 1, $_[0]) });
    }
    for my $name (sort keys %$settings) {
        $report->($policies, 1, "$name has no policy; add one, or say in tools/rules.d/settings.pl why it has none")
            unless $found{$name} or $kept_from_administrators{$name};
    }
}

sub check_defaults {
    my ($tree, $settings, $report) = @_;
    my (%found, $line);
    for (split /\r?\n/, $tree->text($defaults)) {
        ++$line;
        my ($name, $value) = /^"(\w+)"=(.*)/ or next;
        $found{$name} = 1;
        my $setting = $settings->{$name};
        if (not $setting) {
            $report->($defaults, $line, "the service loads no $name; remove the line");
            next;
        }
        my $built_in = $setting->{text} ? "\"$setting->{default}\"" : sprintf 'dword:%08x', $setting->{default};
        $report->($defaults, $line, "$name is built in as $built_in, not $value") if $value ne $built_in;
    }
    for my $name (sort keys %$settings) {
        $report->($defaults, 1, "$name is missing; add its built-in value") unless $found{$name};
    }
}

sub settings {
    my ($tree) = @_;
    my @found;
    my $report = sub { push @found, [@_] };
    my $settings = tables($tree);
    return ['settings/settings_store.cpp', 1, 'no table of settings is found; teach tools/rules.d/settings.pl its form']
        unless %$settings;
    for my $name (sort keys %kept_from_administrators) {
        $report->($page, 1, "$name has a row; remove its exception in tools/rules.d/settings.pl")
            if $tree->text($page) =~ /^\| `$name` \|/m;
    }
    my $meanings = check_page($tree, $settings, $report);
    check_policies($tree, $settings, $meanings, $report);
    check_defaults($tree, $settings, $report);
    return @found;
}

(
    {
        name => 'settings',
        says => "the administrator's page, the policies and the defaults agree with the tables of settings/",
        check => \&settings,
        planted => {
            'settings/settings_store.cpp' => qq|constexpr const wchar_t* kPlan = L"Plan";\nStoredSetting k[] = {\n|
                . qq|    {L"Level", &g_dwLevel, 2 * 3}, {kPlan, nullptr, 0}, {L"Mute", &g_bMute, 1}, {L"New", &g_bNew, 0},\n};\n|
                . qq|Bounds b[] = {{&g_dwLevel, 0, 60}};\n|,
            'package/defaults.reg' => qq|"Level"=dword:00000007\n"Plan"="0"\n"Mute"=dword:00000001\n"Old"=dword:00000000\n|,
        },
        found => [
            'package/administration.md:1: New has no row; add one, or say in tools/rules.d/settings.pl why it has none',
            'package/administration.md:6: the range of Level is 0 to 60, not 0 to 50',
            'package/defaults.reg:1: Level is built in as dword:00000006, not dword:00000007',
            'package/defaults.reg:1: New is missing; add its built-in value',
            'package/defaults.reg:4: the service loads no Old; remove the line',
            'package/policies/Holv.admx:1: New has no policy; add one, or say in tools/rules.d/settings.pl why it has none',
            'package/policies/Holv.admx:1: the policy lets Level be 0 to 50, the service 0 to 60',
            'package/policies/en-US/Holv.adml:1: the policy Level is explained by "How much. From 0 to 50. Built-in: 6. '
                . 'Takes effect when the service next starts."; the page and the tables have "How much. From 0 to 60. '
                . 'Built-in: 6. Takes effect when the service next starts."',
        ],
    },
)

# What comments and papers do without. A letter in brackets in a pattern keeps the pattern from
# finding itself.
use strict;
use warnings;

# Words that hide the subject or the verb of a comment, and what to write instead.
my @riddles = (
    [qr/who(?:m|so)?ever/i                         => 'name the subject: the caller, the thread, the process'],
    [qr/(?:no|some|any)body(?:'s)?(?:\s+else)?/i   => 'name the subject: no caller, another thread, any process'],
    [qr/what\s+is\s+so/i                           => 'say "the current value" or "the observed value"'],
    [qr/g(?:ives?|ave|iven|iving)\s+(?:(?:it|them|what|all|everything|something)\s+)?back/i =>
        'use the verb of the platform: releases, closes, frees, returns'],
    [qr/let(?:s|ting)?\s+(?:\w+\s+)?go\b(?:\s+of)?/i => 'use the verb of the platform: releases, unlocks'],
    [qr/(?:\w+'s|its|their)\s+doing/i              => 'name who does it: "a change by the user", "caused by the caller"'],
    [qr/h(?:ears?|eard|earing)\s+of/i              => 'say "is notified of" or "receives"'],
    [qr/(?:is|are|was|were)\s+about(?!\s+to\b)/i   => 'say what it does: handles, describes, concerns'],
    [qr/(?:is|are)\s+nobody's\s+business/i         => 'say "not modelled" and why'],
);
my $any_riddle = join '|', map { $_->[0] } @riddles;

sub words {
    my ($tree) = @_;
    my @found;
    for my $file ($tree->files(qr/./)) {
        next unless $tree->language($file);
        my $comments = $tree->comments($file);
        while ($comments =~ /\b($any_riddle)\b/g) {
            my ($words, $place) = ($1, $-[0]);
            my ($instead) = map { $_->[1] } grep { $words =~ /^$_->[0]$/ } @riddles;
            $words =~ s/\s+/ /g;
            push @found, [$file, Tree::line_of($comments, $place), "\"$words\": $instead"];
        }
    }
    return @found;
}

# Names of a document that the system is built from. Everything is said in the tree's own words.
my $source = qr/\bspecificatio[n]s?\b|\bspec\.m[d]\b|\bthe\s+spe[c]\b|\bshared\/[a-z_]+\.m[d]\b
    |\b(?:Part|Chapter|Requirement)\s+[0-9]+(?:\.[0-9]+)+|\bsections?\s+[0-9]|§\s*[0-9]
    |\b(?:the|this|our)\s+(?:design|task)\s+(?:paper|brie[f]|page)\b/xi;
# Paths of a developer's machine.
my $here = qr{(?:(?<![\w.\$\}~/*-])|(?<=-[IL]))/(?:wor[k]|roo[t]|hom[e])/};

sub lines_with {
    my ($tree, $pattern, $what) = @_;
    my @found;
    for my $file ($tree->files(qr/./)) {
        my $text = $tree->text($file);
        next if index($text, "\0") >= 0;
        while ($text =~ /$pattern/g) {
            my ($words, $place) = ($&, $-[0]);
            $words =~ s/\s+/ /g;
            push @found, [$file, Tree::line_of($text, $place), "\"$words\" $what"];
        }
    }
    return @found;
}

# What is planted for that rule, written backwards so that the rule does not find it here.
my ($paper, $volume, $part, $section, $file) =
    map { scalar reverse } 'noitacificepS', '2 traP', '1.3 traP', '7 noitces', 'dm.ceps';

(
    {
        name => 'words',
        says => 'comments name their subject and use the verb of the platform',
        counted => 1,
        check => \&words,
        planted => {
            'log/l.cpp' => "// Whoever\n// comes.\nint nobody;  /* gives\n * it back */\n"
                . "const char* text = \"// somebody\";  // What it is about.\n// It is about to end.\n",
            'tools/t.sh' => "#!/bin/sh\n# Hears of it. Usage: tools/t.sh\necho somebody\n",
        },
        found => [
            'log/l.cpp:1: "Whoever": name the subject: the caller, the thread, the process',
            'log/l.cpp:5: "is about": say what it does: handles, describes, concerns',
            'tools/t.sh:2: "Hears of": say "is notified of" or "receives"',
            'log/l.cpp:3: "gives it back": use the verb of the platform: releases, closes, frees, returns',
        ],
    },
    {
        name => 'sources',
        says => 'nothing names a document that the system is built from',
        check => sub { lines_with($_[0], $source, "names a document outside the tree; say the reason itself") },
        planted => {
            'docs/why.md' => "SPDX, inspect, specific, $volume of two.\nAs the $paper has it in $part and $section.\n",
            'log/l.cpp' => "// See $file.\n",
        },
        found => [map { "$_ names a document outside the tree; say the reason itself" }
            "docs/why.md:2: \"$paper\"", "docs/why.md:2: \"$part\"", "docs/why.md:2: \"$section\"",
            "log/l.cpp:1: \"$file\""],
    },
    {
        name => 'paths',
        says => 'no path of one machine',
        check => sub { lines_with($_[0], $here, "is a path of this machine; make it relative to the tree") },
        planted => {
            'run.txt' => "build/roo" . "t/x and \$HOME/wor" . "k/\n\"/hom" . "e/me/x\"\n-I/wor" . "k/y\n",
        },
        found => [
            'run.txt:2: "/hom' . 'e/" is a path of this machine; make it relative to the tree',
            'run.txt:3: "/wor' . 'k/" is a path of this machine; make it relative to the tree',
        ],
    },
)

# The papers speak of what is there, and the scripts say what they do.
use strict;
use warnings;

# docs/decisions.md has rows | `place` | choice | why |. A place is a path, or, of the virtual PC, the
# name of a file there; a name that stands beside it in the first column is in that file, and one in
# the other columns anywhere in the sources.
sub decisions {
    my ($tree) = @_;
    my $paper = 'docs/decisions.md';
    my (@found, %words);
    for my $file ($tree->files(qr{^(?!docs/).*\.(?:cpp|h|idl|mc|in|cmake|ps1|vbs)$})) {
        $words{$_} = 1 for $tree->text($file) =~ /\w+/g;
    }
    my $line = 0;
    for (split /\n/, $tree->text($paper)) {
        ++$line;
        my ($first, $rest) = /^\|(.*?)\|(.*)$/ or next;
        my @beside;  # the files of the places named so far in the first column
        for my $name ($first =~ /`([^`]+)`/g) {
            my @files = $name =~ m{/} ? $tree->files(qr{^\Q$name\E(?:$|(?<=/))})
                : $tree->files(qr{^platform/virtual/(?:.*/)?\Q$name\E(?:(?:_\w+)?\.(?:h|cpp))?$});
            if (@files) {
                @beside = @files;
            } elsif (not @beside or $name =~ m{[/.]}) {
                push @found, [$paper, $line, "`$name` is not there; name the file where the choice is now"];
            } elsif (not grep { $tree->text($_) =~ /\b\Q$name\E\b/ } @beside) {
                push @found, [$paper, $line, "`$name` is not in $beside[0]; name what bears the choice now"];
            }
        }
        for my $name ($rest =~ /`(\w+(?:::\w+)*)(?:\(\))?`/g) {
            push @found, [$paper, $line, "`$name` is nowhere in the sources; name what bears the choice now"]
                if grep { not $words{$_} } split /::/, $name;
        }
        for my $name ($rest =~ /`([\w.]+\/[\w.\/]+)`/g) {
            push @found, [$paper, $line, "`$name` is not there; name the file where it is now"]
                unless $tree->has($name);
        }
    }
    return @found;
}

# Paths below the folders of the tree, in all papers.
sub places {
    my ($tree) = @_;
    my %folders = map { m{^([\w.]+)/} ? ($1 => 1) : () } @{$tree->{files}};
    my @found;
    for my $paper (grep { $_ ne 'docs/decisions.md' } $tree->files(qr{^(?:README|docs/\w+)\.md$})) {
        my $line = 0;
        for (split /\n/, $tree->text($paper)) {
            ++$line;
            for my $name (/`([\w.]+\/[\w.\/-]*)`/g) {
                push @found, [$paper, $line, "`$name` is not there; name the file where it is now"]
                    if $name =~ m{^([\w.]+)/} and $folders{$1} and not $tree->has($name)
                    and not $tree->has("$name.h");
            }
        }
    }
    return @found;
}

sub scripts {
    my ($tree) = @_;
    my @found;
    for my $file ($tree->files(qr{^(?:tools/)?[^/]+$})) {
        next unless -x "$tree->{root}/$file" and $tree->text($file) =~ /^#!/;
        my ($comment) = $tree->text($file) =~ /\A#![^\n]*\n((?:#[^\n]*\n)*)/;
        my $says = $comment =~ tr/\n//s && $comment =~ /\w+\W+\w+\W+\w+/;
        push @found, [$file, 1, 'begins without a comment; say there what it does and how it is called'] unless $says;
        push @found, [$file, 1, 'does not say how it is called; add "Usage: ..." to its first comment']
            if $says and $comment !~ m{\bUsage\b|(?<!\w)\./\Q$file\E\b};
    }
    return @found;
}

(
    {
        name => 'places',
        says => 'what the papers name is there',
        check => sub { (decisions($_[0]), places($_[0])) },
        planted => {
            'docs/decisions.md' => "| place | choice | why |\n|---|---|---|\n"
                . "| `log/log.cpp` `Log` | A `Log` in `log/gone.h`. | `Gone`. |\n"
                . "| `log/log.cpp` `Gone` | | |\n| `log/gone.cpp` | | |\n| `machine` | | |\n| `gone` | | |\n| `log/` | | |\n",
            'docs/why.md' => "`log/log.cpp`, `log/log`, `log/gone`, `build/gone`\n",
        },
        found => [
            'docs/decisions.md:3: `Gone` is nowhere in the sources; name what bears the choice now',
            'docs/decisions.md:3: `log/gone.h` is not there; name the file where it is now',
            'docs/decisions.md:4: `Gone` is not in log/log.cpp; name what bears the choice now',
            'docs/decisions.md:5: `log/gone.cpp` is not there; name the file where the choice is now',
            'docs/decisions.md:7: `gone` is not there; name the file where the choice is now',
            'docs/why.md:1: `log/gone` is not there; name the file where it is now',
        ],
    },
    {
        name => 'scripts',
        says => 'executable scripts of the root and of tools/ begin with what they do and their usage',
        check => \&scripts,
        planted => {
            'play' => "#!/bin/sh\n# Plays a day of it.\nexit\n",
            'tools/silent.sh' => "#!/bin/sh\nset -e\n# Usage: later\n",
            'tools/fine.sh' => "#!/bin/sh\n# Does one thing well.\n# Usage: tools/fine.sh\n",
        },
        executable => [qw(play tools/silent.sh tools/fine.sh)],
        found => [
            'play:1: does not say how it is called; add "Usage: ..." to its first comment',
            'tools/silent.sh:1: begins without a comment; say there what it does and how it is called',
        ],
    },
)

# The scripts for administrators, which no PowerShell runs here.
use strict;
use warnings;

# The exit codes that the head of a script lists: the numbers that begin a part of its "Exit codes:" sentence.
sub listed {
    my ($head) = @_;
    my ($sentence) = $head =~ /Exit codes: (.*?)\./s or return ();
    return map { /^\s*(\d+) / ? ($1 => 1) : () } split /;/, $sentence =~ s/\n#//gr;
}

sub exit_codes {
    my ($tree) = @_;
    my @found;
    for my $file ($tree->files(qr{^package/.*\.ps1$})) {
        my ($head, $body) = $tree->text($file) =~ /\A((?:#[^\n]*\n)*)(.*)\z/s;
        my %listed = listed($head);
        my $line = () = $head =~ /\n/g;
        my %used;
        for (split /\n/, $body) {
            ++$line;
            while (/\b(?:exit|Undo) (\d+)\b/g) {
                $used{$1} = 1;
                push @found, [$file, $line, "ends with $1, which the script's head does not list"]
                    unless $listed{$1};
            }
        }
        push @found, map { [$file, 1, "lists the exit code $_, with which the script never ends"] }
            grep { not $used{$_} } sort keys %listed;
    }
    return @found;
}

# An opened brace or parenthesis that is not closed, comments and texts aside.
sub brackets {
    my ($tree) = @_;
    my %closes = ('}' => '{', ')' => '(');
    my @found;
    FILE: for my $file ($tree->files(qr{^package/.*\.ps1$})) {
        my (@open, $line);
        for (split /\n/, $tree->text($file)) {
            ++$line;
            s/'[^']*'|"(?:`.|[^"`])*"|#.*//g;
            for my $bracket (/[{}()]/g) {
                if (not $closes{$bracket}) {
                    push @open, [$bracket, $line];
                } elsif (not @open or (pop @open)->[0] ne $closes{$bracket}) {
                    push @found, [$file, $line, "$bracket closes nothing"];
                    next FILE;
                }
            }
        }
        push @found, map { [$file, $_->[1], "$_->[0] is not closed"] } @open;
    }
    return @found;
}

(
    {
        name => 'exit_codes',
        says => "a script's head lists the exit codes with which it ends",
        check => \&exit_codes,
        planted => {
            'package/a.ps1' => "# Does it. Exit codes: 0 done; 2 not\n# allowed; 7 never. More.\nexit 0\nif (\$a) { exit 2 }\nUndo 4 'why'\n",
        },
        found => [
            'package/a.ps1:1: lists the exit code 7, with which the script never ends',
            "package/a.ps1:5: ends with 4, which the script's head does not list",
        ],
    },
    {
        name => 'brackets',
        says => 'every bracket of a script is closed',
        check => \&brackets,
        planted => {
            'package/a.ps1' => "# Does it. Exit codes: 0 done.\nif (\$a) { '}' # }\nexit 0\n",
            'package/b.ps1' => "# Does it. Exit codes: 0 done.\nexit 0\n(}\n",
        },
        found => ['package/a.ps1:2: { is not closed', 'package/b.ps1:3: } closes nothing'],
    },
)

#!/usr/bin/perl
# Prints the tables of limits as Markdown; with a FILE, puts them between its two "limits" comments instead.
# Usage: limits.pl SOURCE_DIR [FILE]
use strict;
use warnings;
use lib $0 =~ m{(.*)/}s ? $1 : q(.);
use Limits qw(read_limits figure);

my ($source, $file) = @ARGV;
my ($sections) = read_limits($source);

sub marked { # names, paths and texts as code
  my ($text) = @_;
  $text =~ s/"([^"]*)"|\b((?:ZOR|g)_\w+)|\(setting (\w+)\)/defined $3 ? "(setting `$3`)" : '`' . ($1 \/\/ $2) . '`'/ge;
  return $text;
}

my $tables = '';
for my $section (@$sections) {
  $tables .= "| $section->{title} | limit | beyond |\n|---|---|---|\n";
  $tables .= sprintf "| %s | %s | %s |\n", marked($_->{what}), figure($_->{value}, $_->{unit}), marked($_->{beyond})
    for @{$section->{entries}};
  $tables .= "\n";
}
if (!defined $file) {
  print $tables;
  exit;
}
open my $in, '<', $file or die "$file: $!\n";
my $text = do { local $/; <$in> };
$text =~ s/(<!-- limits[^\n]*-->\n\n).*?(<!-- end of limits -->\n)/$1$tables$2/s or die "$file: no limits comments\n";
open my $out, '>', $file or die "$file: $!\n";
print $out $text;
close $out or die "$file: $!\n";

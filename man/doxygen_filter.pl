#!/usr/bin/perl
# A public header as Doxygen wants it: every comment marked for it, shared comments given to each that shares them, and
# the opening comment made the file's. Usage: doxygen_filter.pl HEADER
use strict;
use warnings;
use lib $0 =~ m{(.*)/}s ? $1 : q(.);
use Headers qw(read_header);

sub plain { # text in which nothing is a command
  my ($text) = @_;
  return $text =~ s/([\\\@<>#%&\$])/\\$1/gr;
}

sub comment {
  my ($doc) = @_;
  return defined $doc ? '/** ' . plain($doc) . " */\n" : '';
}

# Comments inside a type: behind a member, or in front of it.
sub type {
  my ($text) = @_;
  $text =~ s{([;,\{]?)([ \t]*)/\*(.*?)\*/}{($1 ? "$1$2/**<" : "$2/**") . plain($3) . '*/'}gse;
  return $text;
}

my ($path) = @ARGV;
my $header = read_header($path, $path =~ s{.*include/}{}r);
print "/** \@file\n", plain($header->{opening}), " */\n";
my $section = '';
for my $item (@{$header->{items}}) {
  if ("@{$item->{section}}" ne $section) {
    print "/** \@} */\n" if $section;
    $section = "@{$item->{section}}";
    my ($title, $rest) = $section =~ /^(.{1,60}?)(?:[.:](?:\s+(.*))?)?$/s;
    ($title, $rest) = ('', $section) unless defined $title;
    print "/** \@name ", plain($title =~ s/\n/ /gr), "\n", plain($rest // ''), "\n\@{ */\n" if $section;
  }
  print comment($item->{doc});
  print $item->{kind} eq 'Dv' ? "#define $item->{name} $item->{value}\n"
    : $item->{kind} eq 'Vt' ? type($item->{text}) . "\n" : "$item->{text}\n";
}
print "/** \@} */\n" if $section;

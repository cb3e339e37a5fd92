/* Prints what Mixmaster's own code reads from the folder in $MIXPATH, one
 * remailer a line: the type-I list from rlist.txt (t1_rlist), then the
 * type-II list from pubring.mix and mlist.txt (mix2_rlist), each with the
 * flags and statistics that chain selection looks at. Linked against the
 * objects of a Mixmaster build, so the reading is Mixmaster's, bugs and all. */
#include "mix3.h"

#include <stdio.h>

static void print_remailer(const char *type, const REMAILER *r, int t)
{
	printf("%s %s <%s>%s%s%s%s%s%s %d %d\n", type, r->name, r->addr,
	       r->flags.mix ? " mix" : "", r->flags.cpunk ? " cpunk" : "",
	       r->flags.pgp ? " pgp" : "", r->flags.ek ? " ek" : "",
	       r->flags.middle ? " middle" : "", r->flags.post ? " post" : "",
	       r->info[t].reliability, r->info[t].latency);
}

static void print_list(const char *type, REMAILER remailer[], int count, int t)
{
	int i;

	/* Both readers fill the entries from 1 and return one past the last. */
	for (i = 1; i < count; i++)
		print_remailer(type, &remailer[i], t);
}

int main(void)
{
	static REMAILER type1[MAXREM], type2[MAXREM];
	static int badchains[MAXREM][MAXREM];
	int count;

	mix_init(NULL);
	count = t1_rlist(type1, badchains);
	print_list("type1", type1, count, 1);
	count = mix2_rlist(type2, badchains);
	print_list("type2", type2, count, 0);
	mix_exit();
	return 0;
}

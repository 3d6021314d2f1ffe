/* What provider and consumer have agreed on: names and message types of their own. */
#ifndef EXAMPLES_DEMO_H
#define EXAMPLES_DEMO_H

#define PROVIDER "cms" /* these two names also get a place on the notification channel */
#define CONSUMER "web"

#define DEMO_NOTE 0x61001u       /* one-way: the data word is a note */
#define DEMO_SUM 0x61002u        /* request: the answer's data word is the sum of all notes */
#define DEMO_ECHO 0x61003u       /* request: the answer carries the request's body */
#define DEMO_STEPS 0x61004u      /* request that several handlers take part in */
#define DEMO_IGNORED 0x61005u    /* request that nobody answers */
#define DEMO_PUBLISH 0x61006u    /* one-way: the body is to be published as an event */
#define DEMO_DESCRIPTOR 0x61007u /* one-way: a descriptor follows */
#define DEMO_EVENT 0x2DA05u      /* event with a JSON text */
#define DEMO_QUESTION 0x71u      /* notification with an answer */

#define DEMO_PATH "/api/lamp"

#endif

/* What provider and consumer have agreed on: names and message types of their own. */
#ifndef EXAMPLES_DEMO_H
#define EXAMPLES_DEMO_H

#define PROVIDER "cms" /* these two names also get a place on the notification channel */
#define CONSUMER "web"

#define DEMO_NOTE 0x61001u         /* one-way: the data word is a note */
#define DEMO_SUM 0x61002u          /* request: the reply's data word is the sum of all notes */
#define DEMO_ECHO 0x61003u         /* request: the reply carries the request's body */
#define DEMO_STEPS 0x61004u        /* request that several handlers take part in */
#define DEMO_IGNORED 0x61005u      /* request without a reply */
#define DEMO_PUBLISH 0x61006u      /* one-way: the body is to be published as an event */
#define DEMO_DESCRIPTOR 0x61007u   /* one-way: a descriptor follows */
#define DEMO_PUBLISH_BOTH 0x61008u /* one-way: an event with items and one with JSON are to be published */
#define DEMO_EVENT 0x2DA05u        /* event with a JSON text, taken by a handler */
#define DEMO_ITEM_EVENT 0x2DA66u   /* event with items, of the module "lan" */
#define DEMO_JSON_EVENT 0x2DA07u   /* event with a JSON text, of the module "network" */
#define DEMO_GET_DEVICE 1u         /* sub-type of a management request: the settings of the device in its item */
#define DEMO_NO_DEVICE 5u          /* the error code when there is none */
#define DEMO_QUESTION 0x71u        /* notification with a reply */

#define DEMO_PATH "/api/lamp"

#endif

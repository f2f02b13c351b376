/* Ordered containers: red-black trees, the Arr associative array built on them, and sorted
 * tables. An Arr is a red-black tree whose keys are text copies it owns; the tree family keeps
 * the caller's own keys under the caller's comparison; a sorted table is a set of caller items
 * with index access. */
#ifndef CORVEL_ARR_H
#define CORVEL_ARR_H

#include "corvel/export.h"
#include "corvel/tbl.h"

CORVEL_BEGIN_DECLS

/* Node colours. */
#define RB_BLACK 0
#define RB_RED 1

/* Modes of rblookup. */
#define RB_EQUAL 0
#define RB_EQUAL_OR_GREATER 1
#define RB_EQUAL_OR_LESS 2
#define RB_LESS 3
#define RB_GREATER 4
#define RB_NEXT 5     /* the key after key, only when key itself is stored */
#define RB_PREVIOUS 6 /* the key before key, only when key itself is stored */
#define RB_FIRST 7    /* the smallest key; key is ignored */
#define RB_LAST 8     /* the greatest key; key is ignored */

typedef struct Rbnode {
  struct Rbnode *left;
  struct Rbnode *right;
  struct Rbnode *parent;
  int color; /* RB_RED or RB_BLACK */
  void *key;
  void *value;
} Rbnode;

/* Compares two keys like strcmp: negative, zero or positive. */
typedef int (*Rbtree_compare_fn)(const void *a, const void *b);
typedef void (*Rbtree_apply_fn)(void *key, void *value, void *private_data);

typedef struct Rbtree {
  Rbtree_compare_fn compare; /* strcmp when none was given */
  int replace;               /* 1: inserting a stored key replaces its key and value */
  Rbnode spare;              /* receives what the last replacing insert or delete displaced */
  Rbnode *root;              /* &rb_null when the tree is empty */
} Rbtree;

/* The one black sentinel that stands for every absent child and for the parent of the root.
 * rbinsert returns its address when it cannot allocate a node. The library never writes it, so
 * trees in different threads do not interfere. */
CORVEL_API extern Rbnode rb_null;

/* A new empty tree; a null compare means strcmp. Null when memory runs out. */
CORVEL_API Rbtree *rbinit(Rbtree_compare_fn compare);
/* Stores key and value. Returns the new node for a new key. For a stored key: when the tree
 * replaces, the stored node takes key and value, the displaced ones go to tree->spare and the
 * spare is returned; otherwise the stored node is returned unchanged. &rb_null when memory runs
 * out (or tree is null). Keys and values are the caller's: never copied or freed. */
CORVEL_API Rbnode *rbinsert(void *key, void *value, Rbtree *tree);
/* Removes key; returns tree->spare holding the removed key and value (valid until the next
 * insert or delete), or null when key is absent. On an Arr use delarr: the spare's key would
 * point into the freed node. */
CORVEL_API Rbnode *rbdelete(const void *key, Rbtree *tree);
/* The stored key equal to key, or null. */
CORVEL_API void *rbfind(const void *key, Rbtree *tree);
/* The value stored under key, or null. */
CORVEL_API void *rbsearch(const void *key, Rbtree *tree);
/* The stored key that mode (RB_EQUAL ... RB_LAST) selects relative to key, or null. */
CORVEL_API void *rblookup(int mode, const void *key, Rbtree *tree);
/* Calls fn(key, value, private_data) for every node in ascending key order. fn may delete the
 * node it is given. */
CORVEL_API void rbtraverse(Rbtree *tree, Rbtree_apply_fn fn, void *private_data);
/* Frees every node and the tree; keys and values are untouched. */
CORVEL_API void rbdestroy(Rbtree *tree);

/* The associative array: a tree whose keys are copies of text keys, stored inside their nodes.
 * Values are the caller's pointers. */
typedef Rbtree Arr;
typedef int (*Arr_compare_fn)(const char *a, const char *b);
typedef void (*Arr_apply_fn)(char *key, void *value, void *private_data);
typedef void *(*Arr_copy_fn)(void *value);
typedef void (*Arr_free_fn)(void *value);

/* A new empty array ordered by compare (null: strcmp); null when memory runs out. */
CORVEL_API Arr *newarr(Arr_compare_fn compare);
/* Stores value under a copy of key. Returns null for a new key, else the previous value (the
 * first spelling of the key is kept). */
CORVEL_API void *setarr(Arr *arr, const char *key, void *value);
CORVEL_API void *getarr(Arr *arr, const char *key);
/* Removes key and returns its value, or null when absent. */
CORVEL_API void *delarr(Arr *arr, const char *key);
CORVEL_API long cntarr(Arr *arr);
/* New tables of the array's own key texts and of the values, in key order; free them with
 * freetbl(t, 0). A key text stays valid while its key is in the array. */
CORVEL_API Tbl *keysarr(Arr *arr);
CORVEL_API Tbl *valsarr(Arr *arr);
/* Calls fn(key, value, private_data) in key order; fn may delete the entry it is given.
 * Returns 0. */
CORVEL_API int applyarr(Arr *arr, Arr_apply_fn fn, void *private_data);
/* A copy with the same comparison; values become copy(value) (the same pointers when copy is
 * null). */
CORVEL_API Arr *duparr(Arr *arr, Arr_copy_fn copy);
/* Frees the array, calling free_value(value) on each value first when it is given. Returns 0. */
CORVEL_API int freearr(Arr *arr, Arr_free_fn free_value);
/* The keys, in key order, that the extended regular expression pattern matches whole. */
CORVEL_API Tbl *greparr(const char *pattern, Arr *arr);
/* The keys, in key order, that compiled as extended regular expressions match all of string. */
CORVEL_API Tbl *arrgrep(Arr *arr, const char *string);

/* The sorted table: a set of caller items in comparison order, with index access through a list
 * rebuilt on the first read after a change. */
typedef struct Stbl {
  Tbl *list;   /* the items in order, null until first needed */
  Arr *tree;   /* keys are the items; the tree does not replace */
  int changed; /* the list is stale */
} Stbl;

typedef int (*Stbl_apply_fn)(void *item, void *private_data);
typedef void (*Stbl_free_fn)(void *item);

/* A new empty table ordered by compare (null: strcmp, the items being strings). */
CORVEL_API Stbl *newstbl(Rbtree_compare_fn compare);
/* Adds item unless an equal one is stored; returns the stored item (item itself when added). */
CORVEL_API void *addstbl(Stbl *stbl, void *item);
/* Removes and returns the stored item equal to item, or null. */
CORVEL_API void *delstbl(Stbl *stbl, void *item);
/* The stored item equal to item, or null. */
CORVEL_API void *tststbl(Stbl *stbl, void *item);
CORVEL_API long maxstbl(Stbl *stbl);
/* The item at index i in order, or null outside 0 .. maxstbl - 1. */
CORVEL_API void *getstbl(Stbl *stbl, long i);
/* The table's own item list, replaced after the next change: neither free nor keep it. */
CORVEL_API Tbl *tblstbl(Stbl *stbl);
/* The sum of fn(item, private_data) over the items in order. */
CORVEL_API int applystbl(Stbl *stbl, Stbl_apply_fn fn, void *private_data);
/* Frees the table, calling free_item(item) on every item first when it is given. Returns 0. */
CORVEL_API int freestbl(Stbl *stbl, Stbl_free_fn free_item);

CORVEL_END_DECLS

#endif

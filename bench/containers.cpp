// Queues, hand-over between threads, lists, the thread pool.

#include <semaphore.h>

#include <deque>
#include <mutex>
#include <thread>

#include "job.h"
#include "kelcore.h"

#ifdef HAVE_GLIB
#include <glib.h>
#endif

// ---- One thread ----

JOB(queue_push_pop, kelcore) {
  KEL_QUEUE *queue = KEL_QueueCreate("bench", 64);
  int item = 0;
  int32_t param = 0;
  for (auto _ : state) {
    KEL_QueuePush(queue, &item, 1);
    benchmark::DoNotOptimize(KEL_QueuePop(queue, &param, 0));
  }
  KEL_QueueDestroy(queue);
}

JOB(queue_push_pop, std_mutex_deque) {
  std::mutex mutex;
  std::deque<std::pair<void *, int32_t>> queue;
  int item = 0;
  for (auto _ : state) {
    {
      const std::lock_guard guard(mutex);
      queue.emplace_back(&item, 1);
    }
    const std::lock_guard guard(mutex);
    benchmark::DoNotOptimize(queue.front());
    queue.pop_front();
  }
}

#ifdef HAVE_GLIB
JOB(queue_push_pop, glib) {
  GAsyncQueue *queue = g_async_queue_new();
  int item = 0;
  for (auto _ : state) {
    g_async_queue_push(queue, &item);
    benchmark::DoNotOptimize(g_async_queue_try_pop(queue));
  }
  g_async_queue_unref(queue);
}
#endif

// ---- Between threads ----

static constexpr int kItems = 20000;

JOB(hand_over_20000, kelcore) {
  for (auto _ : state) {
    KEL_QUEUE *queue = KEL_QueueCreate("bench", kItems);
    int item = 0;
    std::thread producer([&] {
      for (int i = 0; i < kItems; ++i)
        KEL_QueuePush(queue, &item, 1);
    });
    for (int i = 0; i < kItems;)
      i += KEL_QueuePop(queue, nullptr, KEL_WAIT_FOREVER) != nullptr ? 1 : 0;
    producer.join();
    KEL_QueueDestroy(queue);
  }
}

#ifdef HAVE_GLIB
JOB(hand_over_20000, glib) {
  for (auto _ : state) {
    GAsyncQueue *queue = g_async_queue_new();
    int item = 0;
    std::thread producer([&] {
      for (int i = 0; i < kItems; ++i)
        g_async_queue_push(queue, &item);
    });
    for (int i = 0; i < kItems; ++i)
      benchmark::DoNotOptimize(g_async_queue_pop(queue));
    producer.join();
    g_async_queue_unref(queue);
  }
}
#endif

JOB(ping_pong, kelcore) {
  KEL_MSG *there = KEL_MsgCreate(0, 1, 1), *back = KEL_MsgCreate(0, 1, 1);
  KEL_MSG_DESC message = {1, 0, nullptr}, end = {0, 0, nullptr}, *got = nullptr;
  const auto receive = [](KEL_MSG *channel) {
    KEL_MSG_DESC *taken = nullptr;
    while (KEL_MsgReceive(channel, &taken, KEL_WAIT_FOREVER) != KEL_MSG_RECEIVED) {
    }
    return taken;
  };
  KEL_MsgReceive(there, &got, 0);
  KEL_MsgReceive(back, &got, 0);
  std::thread partner([&] {
    while (receive(there)->word != 0)
      KEL_MsgSend(back, &message);
  });
  for (auto _ : state) {
    KEL_MsgSend(there, &message);
    receive(back);
  }
  KEL_MsgSend(there, &end);
  partner.join();
  KEL_MsgDestroy(there);
  KEL_MsgDestroy(back);
}

JOB(ping_pong, limit_semaphores) {
  sem_t there, back;
  sem_init(&there, 0, 0);
  sem_init(&back, 0, 0);
  bool end = false;
  std::thread partner([&] {
    for (sem_wait(&there); !end; sem_wait(&there))
      sem_post(&back);
  });
  for (auto _ : state) {
    sem_post(&there);
    sem_wait(&back);
  }
  end = true;
  sem_post(&there);
  partner.join();
  sem_destroy(&there);
  sem_destroy(&back);
}

#ifdef HAVE_GLIB
JOB(ping_pong, glib) {
  GAsyncQueue *there = g_async_queue_new(), *back = g_async_queue_new();
  int message = 0, end = 0;
  std::thread partner([&] {
    while (g_async_queue_pop(there) != &end)
      g_async_queue_push(back, &message);
  });
  for (auto _ : state) {
    g_async_queue_push(there, &message);
    benchmark::DoNotOptimize(g_async_queue_pop(back));
  }
  g_async_queue_push(there, &end);
  partner.join();
  g_async_queue_unref(there);
  g_async_queue_unref(back);
}
#endif

JOB(pool_job, kelcore) {
  KEL_THREADPOOL *pool = KEL_ThreadPool_Create("bench", 0, 0, 1);
  for (auto _ : state)
    KEL_ThreadPool_Stop(pool,
                        KEL_ThreadPool_Run(
                            pool, [](void *) -> int32_t { return 0; }, nullptr),
                        nullptr);
  KEL_ThreadPool_Delete(pool);
}

#ifdef HAVE_GLIB
JOB(pool_job, glib) {
  static sem_t done;
  sem_init(&done, 0, 0);
  GThreadPool *pool =
      g_thread_pool_new([](gpointer, gpointer) { sem_post(&done); }, nullptr, 1, TRUE, nullptr);
  int job = 0;
  for (auto _ : state) {
    g_thread_pool_push(pool, &job, nullptr);
    sem_wait(&done);
  }
  g_thread_pool_free(pool, FALSE, TRUE);
}
#endif

// ---- Lists ----

static constexpr int kNodes = 16;

JOB(list_unlink_link, kelcore) {
  KEL_NLIST *list = KEL_NListCreate();
  KEL_NLIST_NODE nodes[kNodes] = {};
  for (KEL_NLIST_NODE &node : nodes)
    KEL_NListAddTail(list, &node);
  int i = 0;
  for (auto _ : state) {
    KEL_NLIST_NODE *node = &nodes[i = (i + 7) % kNodes];
    KEL_NListDel(list, node);
    KEL_NListAddTail(list, node);
  }
  KEL_NListDestroy(list);
}

#ifdef HAVE_GLIB
JOB(list_unlink_link, glib) {
  GQueue queue = G_QUEUE_INIT;
  GList nodes[kNodes] = {};
  for (GList &node : nodes)
    g_queue_push_tail_link(&queue, &node);
  int i = 0;
  for (auto _ : state) {
    GList *node = &nodes[i = (i + 7) % kNodes];
    g_queue_unlink(&queue, node);
    g_queue_push_tail_link(&queue, node);
  }
}
#endif

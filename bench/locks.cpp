// Locks and semaphores, beside the POSIX ones that they are made of.

#include <pthread.h>
#include <semaphore.h>

#include "job.h"
#include "kelcore.h"

JOB(lock_unlock, kelcore) {
  KEL_MUTEX *mutex = KEL_MutexCreate();
  for (auto _ : state) {
    KEL_MutexLock(mutex, KEL_WAIT_FOREVER);
    KEL_MutexUnLock(mutex);
  }
  KEL_MutexDestroy(mutex);
}

JOB(lock_unlock, limit_posix) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  for (auto _ : state) {
    pthread_mutex_lock(&mutex);
    pthread_mutex_unlock(&mutex);
  }
}

JOB(semaphore, kelcore) {
  KEL_SEMA *sema = KEL_SemaCreate(nullptr, 0);
  for (auto _ : state) {
    KEL_SemaPut(sema);
    KEL_SemaGet(sema, KEL_WAIT_FOREVER);
  }
  KEL_SemaDestroy(sema);
}

JOB(semaphore, limit_posix) {
  sem_t sema;
  sem_init(&sema, 0, 0);
  for (auto _ : state) {
    sem_post(&sema);
    sem_wait(&sema);
  }
  sem_destroy(&sema);
}
